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
    enum class Kind { kEvent, kThread, kFile, kDeviceList, kPreparsedData, kProcess };
    Object(Kind kindOfObject, Signal initial) : kind(kindOfObject), signal(std::move(initial)) {}
    virtual ~Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    Kind kind;
    Signal signal;  // events, threads, files and the process
};

struct EventObject : Object {
    static constexpr Kind kKind = Kind::kEvent;
    EventObject(bool manualReset, bool set) : Object(kKind, Signal(manualReset, set)) {}
};

struct ThreadObject : Object {
    static constexpr Kind kKind = Kind::kThread;
    ThreadObject() : Object(kKind, Signal(true, false)) {}
};

/// The device of a path.
struct DeviceNode {
    std::wstring path;
    std::shared_ptr<Driver> driver;
    std::shared_ptr<const HidInterface> hid;  // null for other devices
    struct Opening {
        DWORD access = 0;
        DWORD share = 0;
    };
    std::vector<Opening> openings;
};

/// One opening of a device.
struct FileObject : Object {
    static constexpr Kind kKind = Kind::kFile;
    FileObject(std::shared_ptr<DeviceNode> opened, DeviceNode::Opening how)
        : Object(kKind, Signal(true, false)), node(std::move(opened)), opening(how) {}
    std::shared_ptr<DeviceNode> node;
    DeviceNode::Opening opening;
};

/// The result of SetupDiGetClassDevsW.
struct DeviceListObject : Object {
    static constexpr Kind kKind = Kind::kDeviceList;
    DeviceListObject() : Object(kKind, Signal(true, false)) {}
    std::vector<std::shared_ptr<const HidInterface>> interfaces;
};

struct PreparsedDataObject : Object {
    static constexpr Kind kKind = Kind::kPreparsedData;
    explicit PreparsedDataObject(std::shared_ptr<const HidInterface> of)
        : Object(kKind, Signal(true, false)), hid(std::move(of)) {}
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
