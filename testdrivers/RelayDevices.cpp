// The devices' side of platform/emulation/Kernel.h on Windows: a device that is added appears as a
// real one, and its driver gets the requests that the kernel's relay driver passes on.
#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>

#include "platform/emulation/Kernel.h"
#include "simulator/HidDriver.h"
#include "simulator/SpbDriver.h"
#include "testdrivers/NtStatus.h"
#include "testdrivers/RelayControl.h"
#include "testdrivers/RelayDevices.h"
#include "testdrivers/hid/HidInstall.h"

namespace emulation {

namespace {

using simulator::RelayControl;

constexpr std::size_t kMostBytes = TAGPORT_RELAY_MOST_BYTES;
constexpr const wchar_t* kPaths[kRelayDevices] = {simulator::kSpbDriverPath,
                                                  simulator::kUsbDriverPath, L"the HID keyboard"};

class RelayRequest;

// One control device, with the thread that takes its messages. Guarded by the device lock.
struct Relay {
    std::unique_ptr<RelayControl> control;
    std::map<std::uint64_t, std::shared_ptr<RelayRequest>> pending;  // by id
};

struct Devices {
    std::map<std::wstring, Relay> relays;  // by the name of the control device
    std::array<std::shared_ptr<Driver>, kRelayDevices> drivers;
    std::array<std::uint64_t, kRelayDevices> lastOpen{};  // id of the request
    Tracer tracer;
};

Devices& TheDevices() {
    static Devices& devices = *new Devices;
    return devices;
}

std::string Narrow(const std::wstring& text) {
    return {text.begin(), text.end()};  // paths of devices are ASCII
}

TraceEvent NewEvent(TraceEvent::Kind kind, ThreadId thread, DWORD error) {
    TraceEvent event;
    event.kind = kind;
    event.time = Now();
    event.thread = thread;
    event.error = error;
    return event;
}

void Trace(const TraceEvent& event) {
    if (TheDevices().tracer) {
        TheDevices().tracer(event);
    }
}

void Answer(Relay& relay, std::uint64_t id, DWORD error, const std::uint8_t* bytes = nullptr,
            std::size_t count = 0) {
    RelayAnswer answer = {};
    answer.id = id;
    answer.status = simulator::StatusOf(error);
    answer.count = static_cast<std::uint32_t>(count);
    if (bytes != nullptr) {
        answer.dataSize = answer.count;
        std::memcpy(answer.data, bytes, count);
    }
    relay.control->Answer(answer);
}

Request::Kind KindOf(const RelayMessage& message) {
    return message.kind == kRelayRead    ? Request::Kind::kRead
           : message.kind == kRelayWrite ? Request::Kind::kWrite
                                         : Request::Kind::kControl;
}

class RelayRequest : public Request, public std::enable_shared_from_this<RelayRequest> {
  public:
    RelayRequest(Relay& relay, std::shared_ptr<Driver> driver, const RelayMessage& message)
        : Request(KindOf(message), message.controlCode,
                  std::vector<std::uint8_t>(message.data, message.data + message.dataSize),
                  message.length, message.thread),
          m_relay(relay),
          m_driver(std::move(driver)),
          m_id(message.id) {}

    bool Pending() const override { return m_pending; }

    void Complete(const std::uint8_t* bytes, std::size_t count) override {
        End(ERROR_SUCCESS, bytes, count);
    }
    void Fail(DWORD error, std::size_t count) override { End(error, nullptr, count); }

    void Start() {
        Trace(TraceEvent::Kind::kStart, 0);
        const DWORD result = m_driver->Start(shared_from_this());
        if (result != ERROR_IO_PENDING && result != ERROR_SUCCESS) {
            Fail(result, 0);
        }
    }

    /// The kernel's driver has ended it already: a host has cancelled it, or its device is gone.
    void Ended(bool isGone) {
        if (!isGone) {
            Trace(TraceEvent::Kind::kCancel, 0);
        }
        m_driver->Cancel(shared_from_this());
        m_pending = false;
        Trace(TraceEvent::Kind::kDone,
              isGone ? ERROR_DEVICE_NOT_CONNECTED : ERROR_OPERATION_ABORTED);
    }

  private:
    void End(DWORD error, const std::uint8_t* bytes, std::size_t count) {
        if (!std::exchange(m_pending, false)) {
            return;
        }
        const std::size_t moved = std::min({count, length(), kMostBytes});
        Trace(TraceEvent::Kind::kDone, error, bytes, moved);
        m_relay.pending.erase(m_id);
        Answer(m_relay, m_id, error, bytes, moved);
    }

    void Trace(TraceEvent::Kind kind, DWORD error, const std::uint8_t* bytes = nullptr,
               std::size_t count = 0) {
        TraceEvent event = NewEvent(kind, thread(), error);
        event.request = shared_from_this();
        event.count = count;
        if (bytes != nullptr) {
            event.bytes.assign(bytes, bytes + count);
        }
        emulation::Trace(event);
    }

    Relay& m_relay;
    std::shared_ptr<Driver> m_driver;
    std::uint64_t m_id;
    bool m_pending = true;
};

void Open(Relay& relay, Driver* driver, const RelayMessage& message) {
    const DWORD error = driver == nullptr ? ERROR_FILE_NOT_FOUND : driver->Open();
    TraceEvent event = NewEvent(TraceEvent::Kind::kOpen, message.thread, error);
    event.text = Narrow(kPaths[message.device]);
    Trace(event);
    TheDevices().lastOpen.at(message.device) = error == ERROR_SUCCESS ? message.id : 0;
    Answer(relay, message.id, error);
}

void Take(Relay& relay, const RelayMessage& message) {
    const DeviceLock lock;
    const std::shared_ptr<Driver> driver = TheDevices().drivers.at(message.device);
    switch (message.kind) {
        case kRelayOpen:
            Open(relay, driver.get(), message);
            break;
        case kRelayClose:
            if (driver != nullptr) {
                driver->Close();
            }
            break;
        case kRelayCancel: {
            const auto found = relay.pending.find(message.id);
            if (found != relay.pending.end()) {
                const std::shared_ptr<RelayRequest> request = found->second;
                relay.pending.erase(found);
                request->Ended(driver == nullptr);
            } else if (TheDevices().lastOpen.at(message.device) == message.id &&
                       driver != nullptr) {
                driver->Close();  // an opening that was cancelled after its success
            }
            break;
        }
        default:
            // Between a device's removal and its driver's word of it, there is nobody to ask: the
            // kernel ends the request.
            if (driver != nullptr) {
                const auto request = std::make_shared<RelayRequest>(relay, driver, message);
                relay.pending[message.id] = request;
                request->Start();
            }
            break;
    }
}

Relay& RelayOf(const std::wstring& controlName) {
    Relay& relay = TheDevices().relays[controlName];
    if (relay.control == nullptr) {
        relay.control = std::make_unique<RelayControl>(controlName);
        std::thread([&relay] {
            while (const auto message = relay.control->Next()) {
                Take(relay, *message);
            }
        }).detach();
    }
    return relay;
}

void ThrowIfRefused(DWORD error, RelayDevice which, const char* what) {
    if (error != ERROR_SUCCESS) {
        throw std::runtime_error(Narrow(kPaths[which]) + what + ", error " + std::to_string(error));
    }
}

void SetDevice(RelayDevice which, const wchar_t* controlName, std::shared_ptr<Driver> driver) {
    const DeviceLock lock;
    const bool present = driver != nullptr;
    TheDevices().drivers.at(which) = std::move(driver);
    ThrowIfRefused(RelayOf(controlName).control->Plug(which, present ? 1U : 0U), which,
                   present ? " cannot be added" : " cannot be removed");
}

RelayDevice SpbByPath(const std::wstring& path) {
    for (const RelayDevice which : {kRelayI2c, kRelayUsb}) {
        if (path == kPaths[which]) {
            return which;
        }
    }
    throw std::runtime_error("no relay driver has a device " + Narrow(path));
}

// The system sees a change on the HID bus some time after it was reported. Without the device lock:
// meanwhile it makes requests.
void AwaitHid(bool present) {
    if (!simulator::AwaitHid(present)) {
        throw std::runtime_error(present ? "the HID keyboard does not appear"
                                         : "the HID keyboard does not go away");
    }
}

}  // namespace

void AddDevice(const std::wstring& path, std::shared_ptr<Driver> driver) {
    SetDevice(SpbByPath(path), TAGPORT_RELAY_SPB_CONTROL, std::move(driver));
}

void RemoveDevice(const std::wstring& path) {
    SetDevice(SpbByPath(path), TAGPORT_RELAY_SPB_CONTROL, nullptr);
}

// The minidriver describes the keyboard itself, and a real PC has other HID devices of its own, so
// only the driver is of use here. An interface with the inert driver of a decoy is left out.
void AddHidInterface(const HidInterface& interface, std::shared_ptr<Driver> driver) {
    if (interface.path == simulator::KeyboardInterface().path) {
        SetDevice(kRelayHid, TAGPORT_RELAY_HID_CONTROL, std::move(driver));
        AwaitHid(true);
    }
}

void RemoveHidInterfaces() {
    SetDevice(kRelayHid, TAGPORT_RELAY_HID_CONTROL, nullptr);
    AwaitHid(false);
}

void SetRules(const RelayRules& rules) {
    const DeviceLock lock;
    ThrowIfRefused(RelayOf(TAGPORT_RELAY_SPB_CONTROL).control->SetRules(rules),
                   static_cast<RelayDevice>(rules.device), " takes no rules");
}

void SetTracer(Tracer tracer) {
    const DeviceLock lock;
    TheDevices().tracer = std::move(tracer);
}

}  // namespace emulation
