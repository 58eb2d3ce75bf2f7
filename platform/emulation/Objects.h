// The objects that handles refer to. They are read and changed under the kernel lock. Private to
// platform/emulation.
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "platform/emulation/Kernel.h"

namespace emulation {

/// One thread's wait on one object.
struct Waiter {
    bool released = false;
};

/// The signalled state of an object and the threads that wait for it. A thread that waited when the
/// state was set has been released, whatever happens to the state after that.
class Signal {
  public:
    Signal(bool manualReset, bool set) : m_manualReset(manualReset), m_set(set) {}

    /// Returns the state, and resets it if it is of the auto-reset kind.
    bool TryTake() {
        const bool set = m_set;
        m_set = m_set && m_manualReset;
        return set;
    }
    void Set() {
        if (m_manualReset) {
            for (Waiter* waiter : m_waiters) {
                waiter->released = true;
            }
            m_waiters.clear();
            m_set = true;
        } else if (m_waiters.empty()) {
            m_set = true;
        } else {
            m_waiters.front()->released = true;
            m_waiters.erase(m_waiters.begin());
        }
    }
    void Reset() { m_set = false; }
    void Add(Waiter& waiter) { m_waiters.push_back(&waiter); }
    void Remove(const Waiter& waiter) {
        m_waiters.erase(std::remove(m_waiters.begin(), m_waiters.end(), &waiter), m_waiters.end());
    }

  private:
    bool m_manualReset;
    bool m_set;
    std::vector<Waiter*> m_waiters;  // in the order of their coming; not owned
};

struct Object {
    explicit Object(Signal initial = {true, false}) : signal(std::move(initial)) {}
    virtual ~Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    /// What a report calls it; null for an object that can be neither waited for nor closed.
    virtual const char* WaitName() const { return nullptr; }

    Signal signal;
};

struct EventObject : Object {
    using Object::Object;
    const char* WaitName() const override { return "event"; }
};

struct ThreadObject : Object {
    const char* WaitName() const override { return "thread"; }
};

/// The own process. Its end is never signalled.
struct ProcessObject : Object {
    const char* WaitName() const override {
        return "the end of this process, whose handle is INVALID_HANDLE_VALUE:";
    }
};

struct FileObject;

/// The device of a path.
struct DeviceNode {
    std::wstring path;
    std::shared_ptr<Driver> driver;
    std::shared_ptr<const HidInterface> hid;  // null for other devices
    std::vector<const FileObject*> openings;
};

/// One opening of a device.
struct FileObject : Object {
    FileObject(DWORD wantedAccess, DWORD shareMode) : access(wantedAccess), share(shareMode) {}
    const char* WaitName() const override { return "device"; }

    std::shared_ptr<DeviceNode> node;
    DWORD access;
    DWORD share;
};

/// The result of SetupDiGetClassDevsW.
struct DeviceListObject : Object {
    std::vector<std::shared_ptr<const HidInterface>> interfaces;
};

struct PreparsedDataObject : Object {
    explicit PreparsedDataObject(std::shared_ptr<const HidInterface> of) : hid(std::move(of)) {}
    std::shared_ptr<const HidInterface> hid;
};

/// An overlapped request between its start and its end.
class PendingRequest : public Request {
  public:
    PendingRequest(Kind kind, DWORD controlCode, std::vector<std::uint8_t> data, std::size_t length,
                   ThreadId thread, OVERLAPPED* overlapped, void* out,
                   std::shared_ptr<FileObject> file, std::shared_ptr<EventObject> event)
        : Request(kind, controlCode, std::move(data), length, thread),
          m_overlapped(overlapped),
          m_out(out),
          m_file(std::move(file)),
          m_event(std::move(event)) {}

    bool Pending() const override { return m_file != nullptr; }
    void Complete(const std::uint8_t* bytes, std::size_t count) override;
    void Fail(DWORD error, std::size_t count) override;

    const OVERLAPPED* overlapped() const { return m_overlapped; }
    const FileObject* file() const { return m_file.get(); }

    /// Ends the request without writing a result or signalling its end.
    void Detach() {
        m_file.reset();
        m_event.reset();
    }

  private:
    void End(DWORD error, const std::uint8_t* bytes, std::size_t count);

    OVERLAPPED* m_overlapped;
    void* m_out;  // the caller's buffer, length() bytes; null for a write
    // Both are reset at the end: a driver may keep its requests, and the file keeps the driver.
    std::shared_ptr<FileObject> m_file;
    std::shared_ptr<EventObject> m_event;  // null: the end signals the file
};

}  // namespace emulation
