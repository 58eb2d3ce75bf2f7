// The simulated PC on the emulation.
#include <cstdlib>
#include <utility>
#include <vector>

#include "lab/BusTrace.h"
#include "lab/Failure.h"
#include "lab/Pc.h"
#include "lab/PcDevices.h"
#include "lab/Terminal.h"
#include "lab/Words.h"
#include "platform/emulation/Kernel.h"
#include "platform/services/TraceLog.h"
#include "platform/services/standin/ClientBackDoor.h"

namespace lab {

namespace {

constexpr emulation::Micros kThreadEndBound = 5 * emulation::kSecond;

emulation::Micros FromMilliseconds(std::int64_t milliseconds) {
    return milliseconds * emulation::kMillisecond;
}

void RecordLogLine(int level, const std::wstring& line, void* context) {
    static_cast<Recorder*>(context)->AddLogLine(emulation::CurrentThread(),
                                                ToMilliseconds(emulation::Now()), level, line);
}

using Body = std::function<void()>;

// Of every host: the recorder does not name threads of hosts after their routine.
DWORD WINAPI RunHost(LPVOID argument) {
    (*std::unique_ptr<Body>(static_cast<Body*>(argument)))();
    return 0;
}

class EmulatedPc : public Pc {
  public:
    EmulatedPc(const PcOptions& options, Recorder& recorder)
        : Pc(PcParts(options, NamesOf(simulator::kRouteKinds))),
          m_options(options),
          m_recorder(recorder),
          m_bus(recorder, Parts()) {
        if (m_options.seed) {
            emulation::ScheduledOptions options;
            options.seed = *m_options.seed;
            options.maxSilence = 0;  // the output may be on its way into a pager
            options.maxLateness = FromMilliseconds(m_options.late);
            options.priorityChangePoints = m_options.priorityChanges;
            emulation::UseScheduledClock(options);
        }
        emulation::SetStallHandler([this](const std::string& report) {
            m_recorder.Finish();
            WriteError("tagport-lab: the run can make no progress\n" + report);
            std::_Exit(kExitFailed);  // every thread is blocked: no orderly end is possible
        });
    }

    void CreateDevices() override {
        m_recorder.NameThread(emulation::CurrentThread(), kHostThread);
        TraceLogger::SetSink(RecordLogLine, &m_recorder);
        emulation::SetTracer([this](const emulation::TraceEvent& event) { m_bus.Take(event); });
        m_devices = std::make_unique<PcDevices>(m_options, Parts(), m_recorder, &ToMilliseconds);
    }

    double Now() const override { return ToMilliseconds(emulation::Now()); }
    ThreadKey Thread() const override { return emulation::CurrentThread(); }
    bool WaitFor(const std::function<bool()>& predicate, std::int64_t milliseconds,
                 const char* what) override {
        return emulation::WaitFor(predicate, FromMilliseconds(milliseconds), what);
    }
    void RecheckWaits() override {
        emulation::After(0, [] {});
    }
    void StartThread(Body body) override {
        CloseHandle(CreateThread(nullptr, 0, RunHost, new Body(std::move(body)), 0, nullptr));
    }

    void Act(const Command& command) override { m_devices->Act(command); }
    std::string TagMemory() const override { return m_devices->TagMemory(); }
    emulation::LiveCounts Live() const override {
        const emulation::LiveCounts live = emulation::Live();
        const std::size_t clients = LinkDockService::DeliveryThreads();  // a handle for each
        return {live.handles - clients, live.threads - clients, live.requests};
    }

    void WaitForThreads() override {
        // The deferred call thread stays blocked after the last manager is released.
        emulation::WaitFor([this] { return m_bus.Threads() <= 1; }, kThreadEndBound,
                           "the threads that end with the last manager");
    }

  private:
    PcOptions m_options;
    Recorder& m_recorder;
    BusTrace m_bus;
    std::unique_ptr<PcDevices> m_devices;
};

}  // namespace

Pc& MakePc(const PcOptions& options, Recorder& recorder) {
    static EmulatedPc* const pc = new EmulatedPc(options, recorder);
    return *pc;
}

}  // namespace lab
