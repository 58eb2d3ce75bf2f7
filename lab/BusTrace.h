// Records what goes over the bus of a simulated PC: the layer's requests, and the calls that reach
// a Bluetooth keyboard. It also tells the recorder which thread is which.
#pragma once

#include <atomic>
#include <memory>

#include "lab/BusMeaning.h"
#include "lab/Recorder.h"
#include "platform/LinkDockBackDoor.h"
#include "platform/hosted/Kernel.h"

namespace lab {

class BusTrace {
  public:
    BusTrace(Recorder& recorder, BusMeaning meaning) : m_recorder(recorder), m_meaning(meaning) {}

    /// A tracer of the layer.
    void Take(const hosted::TraceEvent& event);
    /// Threads that have started and not ended. Asks nothing of the layer, so predicates may call
    /// it.
    int Threads() const { return m_threads; }

  private:
    void Started(const hosted::TraceEvent& event);
    void Done(const hosted::TraceEvent& event);
    void Add(hosted::ThreadId thread, hosted::Micros time, Json fields);

    Recorder& m_recorder;
    BusMeaning m_meaning;  // under the layer's device lock
    std::atomic<int> m_threads{0};
};

/// Stands in front of a Bluetooth device and records the calls that reach it.
std::shared_ptr<LinkDockService::BlePeer> TracedPeer(std::shared_ptr<LinkDockService::BlePeer> peer,
                                                     Recorder& recorder);

}  // namespace lab
