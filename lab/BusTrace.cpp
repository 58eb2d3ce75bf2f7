// Turns events of the emulation and calls of the Bluetooth client into objects of the recorder.
#include "lab/BusTrace.h"

#include <algorithm>
#include <utility>

#include "lab/Hex.h"
#include "simulator/SpbDriver.h"

namespace lab {

using LinkDockService::Characteristic;

namespace {

// Locks that only one thread takes, by the names of their ranks.
constexpr char kDeferLockName[] = "g_deferMutex";
constexpr char kNumberLockName[] = "m_staticWriteMutex";
constexpr std::size_t kKeyboardReadSize = 64;

/// Of an error of 0 nothing is said.
Json BusObject(const char* op, const std::string& bytes, std::int64_t error,
               const std::string& meaning, const char* state = nullptr) {
    Json object{{"kind", "bus"}, {"op", op}, {"bytes", bytes}};
    if (state != nullptr) {
        object["state"] = state;
    }
    if (error != 0) {
        object["error"] = error;
    }
    object["meaning"] = meaning;
    return object;
}

/// The route of a device by its path. Paths of HID interfaces are no drivers' paths.
const simulator::RouteKind& RouteOfDevice(const std::string& path) {
    const std::wstring driver(path.begin(), path.end());
    for (const simulator::RouteKind& kind : simulator::kRouteKinds) {
        if (kind.driver == driver) {
            return kind;
        }
    }
    return simulator::KindOf(simulator::PcRoute::kHid);
}

bool IsInterruptWait(const emulation::Request& request) {
    return request.kind() == emulation::Request::Kind::kControl &&
           request.controlCode() == simulator::kControlInterrupt;
}

const char* Operation(const emulation::Request& request) {
    using Kind = emulation::Request::Kind;
    return request.kind() == Kind::kRead    ? "read"
           : request.kind() == Kind::kWrite ? "write"
           : IsInterruptWait(request)       ? "wait"
                                            : "open";
}

class TracingPeer : public LinkDockService::BlePeer {
  public:
    TracingPeer(std::shared_ptr<BlePeer> peer, Recorder& recorder, std::function<double()> now)
        : m_peer(std::move(peer)), m_recorder(recorder), m_now(std::move(now)) {}

    int Connect(std::uint64_t address) override {
        return Record("open", "connect the keyboard", {}, m_peer->Connect(address));
    }
    int Disconnect(std::uint64_t address) override {
        return Record("cancel", "disconnect the keyboard", {}, m_peer->Disconnect(address));
    }
    int Subscribe(const Characteristic& to, bool on) override {
        return Record(on ? "open" : "cancel", on ? "subscribe" : "unsubscribe", {},
                      m_peer->Subscribe(to, on));
    }
    int Write(const Characteristic& to, const std::vector<std::uint8_t>& value) override {
        BusMeaning meaning(BusFormat::kFrames);
        return Record("write", meaning.OfWrite(AsText(value)), value, m_peer->Write(to, value));
    }
    bool WaitNotification(const LinkDockService::StopToken& stop,
                          std::vector<std::uint8_t>& value) override {
        m_recorder.NameThread(emulation::CurrentThread(), kBleThread);
        if (!m_peer->WaitNotification(stop, value)) {
            return false;
        }
        const BusMeaning meaning(BusFormat::kFrames);
        Record("read", meaning.OfRead(AsText(value)), value, 0);
        return true;
    }
    void Wake() override { m_peer->Wake(); }

  private:
    int Record(const char* op, const std::string& meaning, const Bytes& bytes, int result) {
        m_recorder.Add(emulation::CurrentThread(), m_now(),
                       BusObject(op, ToHex(bytes), std::min(result, 0), meaning));
        return result;
    }

    std::shared_ptr<BlePeer> m_peer;
    Recorder& m_recorder;
    std::function<double()> m_now;
};

}  // namespace

std::shared_ptr<LinkDockService::BlePeer> TracedPeer(std::shared_ptr<LinkDockService::BlePeer> peer,
                                                     Recorder& recorder,
                                                     std::function<double()> now) {
    return std::make_shared<TracingPeer>(std::move(peer), recorder, std::move(now));
}

BusTrace::BusTrace(Recorder& recorder, const PcParts& parts)
    : m_recorder(recorder), m_parts(parts), m_meaning(MeaningOn(parts.FirstRoute())) {}

BusMeaning BusTrace::MeaningOn(const simulator::RouteKind& route) const {
    return m_parts.Chip() == nullptr ? BusMeaning(route.format)
                                     : BusMeaning(route.format, m_parts.Chip()->frames);
}

void BusTrace::Add(emulation::ThreadId thread, emulation::Micros time, Json fields) {
    m_recorder.Add(thread, ToMilliseconds(time), std::move(fields));
}

void BusTrace::Take(const emulation::TraceEvent& event) {
    using Kind = emulation::TraceEvent::Kind;
    if (event.kind == Kind::kThreadEnd) {
        --m_threads;
    } else if (event.kind == Kind::kThreadStart) {
        ++m_threads;
        // A routine is only compared, never called.
        m_recorder.ThreadStarted(event.thread, reinterpret_cast<const void*>(event.routine));
    } else if (event.kind == Kind::kLock) {
        if (event.text == kDeferLockName) {
            m_recorder.NameThread(event.thread, kDeferThread);
        } else if (event.text == kNumberLockName) {
            m_recorder.NameThread(event.thread, kNumberThread);
        }
    } else if (event.kind == Kind::kStart) {
        Started(event);
    } else if (event.kind == Kind::kDone) {
        Done(event);
    } else if (event.kind == Kind::kCancel) {
        Add(event.thread, event.time,
            BusObject("cancel", "", 0, std::string("cancel a ") + Operation(*event.request)));
    } else if (event.kind == Kind::kOpen) {
        if (event.error == ERROR_SUCCESS) {
            m_meaning = MeaningOn(RouteOfDevice(event.text));
        }
        Add(event.thread, event.time, BusObject("open", "", event.error, event.text));
    } else if (event.kind == Kind::kSleep) {
        Add(event.thread, event.time, {{"kind", "sleep"}, {"ms", event.milliseconds}});
    }
}

void BusTrace::Started(const emulation::TraceEvent& event) {
    const emulation::Request& request = *event.request;
    if (IsInterruptWait(request)) {
        m_recorder.NameThread(event.thread, kInterruptThread);
        Add(event.thread, event.time,
            BusObject("wait", "", 0, "wait for the chip's interrupt", "begun"));
    } else if (request.kind() == emulation::Request::Kind::kRead &&
               request.length() == kKeyboardReadSize && m_meaning.format() == BusFormat::kReports) {
        m_recorder.NameThread(event.thread, kKeyboardThread);
    }
}

void BusTrace::Done(const emulation::TraceEvent& event) {
    const emulation::Request& request = *event.request;
    const bool isWrite = request.kind() == emulation::Request::Kind::kWrite;
    const bool worked = event.error == ERROR_SUCCESS;
    std::string meaning;
    if (isWrite) {
        meaning = m_meaning.OfWrite(AsText(request.data()));
    } else if (request.kind() == emulation::Request::Kind::kRead) {
        meaning = worked ? m_meaning.OfRead(AsText(event.bytes))
                         : "read of " + std::to_string(request.length()) + " bytes";
    } else {
        meaning = !IsInterruptWait(request) ? "open command"
                  : worked                  ? "the chip's interrupt"
                                            : "no interrupt";
    }
    // Recorded for the thread that made the request: any other thread may complete it.
    Add(request.thread(), event.time,
        BusObject(Operation(request), ToHex(isWrite ? request.data() : event.bytes), event.error,
                  meaning, IsInterruptWait(request) ? "ended" : nullptr));
}

}  // namespace lab
