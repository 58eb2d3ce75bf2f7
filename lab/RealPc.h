// The PC object of a Windows PC with its own drivers, and what one with the test drivers shares
// with it. Windows alone.
#pragma once

#include <chrono>
#include <mutex>
#include <set>
#include <string>

#include "lab/Pc.h"

namespace lab {

/// The routine that a thread of this process was started with; null where the system cannot say.
const void* RoutineOf(ThreadKey thread);

class RealPc : public Pc {
  public:
    explicit RealPc(Recorder& recorder) : m_recorder(recorder) {}

    void ChooseClock() override {}
    void CreateDevices() override;

    std::string Route() const override { return "the PC's own"; }
    // A keyboard with a microcontroller may be there.
    bool HasRoute(const std::string& name) const override { return name == "hid"; }
    std::string Chip() const override { return {}; }
    std::uint64_t KeyboardAddress() const override { return 0; }
    std::string DefaultScript() const override;

    double Now() const override;
    ThreadKey Thread() const override;
    bool WaitFor(const std::function<bool()>& predicate, std::int64_t milliseconds,
                 const char* what) override;
    void RecheckWaits() override {}
    void StartThread(unsigned host, std::function<void()> body) override;

    // What needs simulated devices is refused.
    void Tap(std::int64_t in, std::int64_t stay, const std::string& route) override;
    void Enter(std::int64_t in) override;
    void Leave(std::int64_t /*in*/) override {}
    void ChipStatus(std::int64_t in, std::uint8_t status) override;
    void Unplug() override;
    void Plug() override;
    void ChipBits(unsigned reg, std::uint8_t mask, std::uint8_t value) override;
    void BleClient(const std::map<std::string, std::string>& fields) override;
    void Fault(const std::string& plan, bool apply) override;
    std::string TagMemory() const override { return {}; }
    LiveObjects Live() const override { return {}; }  // for --check, which is refused
    void WaitForThreads() override {}

  protected:
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
