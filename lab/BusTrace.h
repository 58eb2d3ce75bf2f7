// Records the bus traffic of a simulated PC: the requests of the emulation and the calls that
// reach a Bluetooth keyboard. It also names the threads in the recorder.
#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "lab/BusMeaning.h"
#include "lab/PcParts.h"
#include "lab/Recorder.h"
#include "platform/emulation/Kernel.h"
#include "platform/services/standin/ClientBackDoor.h"

namespace lab {

constexpr double ToMilliseconds(emulation::Micros time) {
    return static_cast<double>(time) / static_cast<double>(emulation::kMillisecond);
}

class BusTrace {
  public:
    BusTrace(Recorder& recorder, const PcParts& parts);

    /// To be called for every event of the emulation's tracer.
    void Take(const emulation::TraceEvent& event);
    /// The number of threads that have started and not ended. Takes no lock, so predicates may call
    /// it.
    int Threads() const { return m_threads; }

  private:
    void Started(const emulation::TraceEvent& event);
    void Done(const emulation::TraceEvent& event);
    BusMeaning MeaningOn(const simulator::RouteKind& route) const;
    void Add(emulation::ThreadId thread, emulation::Micros time, Json fields);

    Recorder& m_recorder;
    const PcParts& m_parts;
    BusMeaning m_meaning;  // of the device that was opened last; guarded by emulation::DeviceLock
    std::atomic<int> m_threads{0};
};

/// Wraps a Bluetooth device and records the calls that reach it, at the milliseconds of `now`.
std::shared_ptr<LinkDockService::BlePeer> TracedPeer(std::shared_ptr<LinkDockService::BlePeer> peer,
                                                     Recorder& recorder,
                                                     std::function<double()> now);

}  // namespace lab
