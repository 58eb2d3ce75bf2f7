// The PC object of a Windows PC with its own drivers, and what one with the test drivers shares
// with it. Windows alone.
#pragma once

#include <chrono>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "lab/Pc.h"

namespace lab {

class RealPc : public Pc {
  public:
    RealPc(PcParts parts, Recorder& recorder) : Pc(std::move(parts)), m_recorder(recorder) {}

    void CreateDevices() override;

    double Now() const override;
    ThreadKey Thread() const override;
    bool WaitFor(const std::function<bool()>& predicate, std::int64_t milliseconds,
                 const char* what) override;
    void RecheckWaits() override {}
    void StartThread(std::function<void()> body) override;

    void Act(const Command& /*command*/) override {}  // PcParts has refused it
    std::string TagMemory() const override { return {}; }
    emulation::LiveCounts Live() const override { return {}; }  // for --check, which is refused
    void WaitForThreads() override {}

  protected:
    /// The deferred call thread stays blocked after the last manager is released.
    void WaitForLibraryThreads();
    Recorder& recorder() { return m_recorder; }
    /// `micros` of the system's steady clock, as milliseconds of this pc.
    double TimeOf(std::int64_t micros) const;
    /// Reports to the recorder which routine a thread runs, once, so that threads of one routine
    /// share their name. Any thread.
    void NameThreadByRoutine(ThreadKey thread);

  private:
    static void RecordLogLine(int level, const std::wstring& line, void* context);

    Recorder& m_recorder;
    std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
    std::mutex m_mutex;
    std::set<ThreadKey> m_threads;  // whose routine the recorder knows; guarded by m_mutex
};

}  // namespace lab
