// The PC that a run uses: a simulated one on the emulation (EmulatedPc.cpp), or the real
// drivers of a Windows PC (RealPc.cpp). CMake chooses which one is built.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "lab/PcParts.h"
#include "lab/Recorder.h"
#include "platform/emulation/Kernel.h"

namespace lab {

/// All times are milliseconds.
class Pc {
  public:
    explicit Pc(PcParts parts) : m_parts(std::move(parts)) {}
    virtual ~Pc() = default;

    const PcParts& Parts() const { return m_parts; }

    /// Creates the devices and connects log and bus to the recorder.
    virtual void CreateDevices() = 0;

    virtual double Now() const = 0;
    virtual ThreadKey Thread() const = 0;
    /// True when the predicate became true within the time. It may run on any thread.
    virtual bool WaitFor(const std::function<bool()>& predicate, std::int64_t milliseconds,
                         const char* what) = 0;
    /// Makes WaitFor evaluate its predicate again. Any thread.
    virtual void RecheckWaits() = 0;
    /// Runs `body` on a new thread, which nobody joins.
    virtual void StartThread(std::function<void()> body) = 0;

    /// Carries out what happens to a device: a command of IsDeviceVerb that Parts().Check has
    /// accepted. The call returns at once; with "in MS" it happens that much later.
    virtual void Act(const Command& command) = 0;

    /// The memory of the first route's tag from the image's first byte on; empty when it cannot be
    /// read.
    virtual std::string TagMemory() const = 0;
    /// What is alive in the emulation. Threads with which the Bluetooth client delivers are left
    /// out, because it keeps them where it has refused to end its deliveries.
    virtual emulation::LiveCounts Live() const = 0;
    /// Waits, within a bound, for the threads that end after the last manager is released.
    virtual void WaitForThreads() = 0;

  private:
    PcParts m_parts;
};

/// Chooses the clock as well. Never destroyed: the library's threads may call it until the process
/// ends.
Pc& MakePc(const PcOptions& options, Recorder& recorder);

}  // namespace lab
