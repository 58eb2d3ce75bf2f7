// The real drivers of a Windows PC. Options and commands that need simulated devices are refused.
#include <chrono>
#include <thread>
#include <utility>

#include "lab/Failure.h"
#include "lab/Stage.h"
#include "platform/TraceLog.h"
#include "platform/platform.h"

namespace lab {

namespace {

constexpr std::int64_t kPollInterval = 5;  // milliseconds between two evaluations of a predicate

[[noreturn]] void Refuse(const std::string& what) {
    throw WrongCall(
        what + " needs simulated devices, which this build does not have: it uses the PC's own");
}

class WindowsStage : public Stage {
  public:
    WindowsStage(const StageOptions& options, Recorder& recorder) : m_recorder(recorder) {
        const auto refuse = [](bool given, const char* option) {
            if (given) {
                Refuse(option);
            }
        };
        refuse(options.route.has_value(), "--route");
        refuse(options.chip.has_value(), "--chip");
        refuse(options.fault.has_value(), "--fault");
        refuse(options.seed.has_value(), "--seed");
        refuse(options.bus, "--bus");
        refuse(options.check, "--check");
    }

    void ChooseClock() override {}
    void CreateDevices() override {
        m_recorder.NameThread(Thread(), kHostThread);
        TraceLogger::SetSink(&WindowsStage::RecordLogLine, this);
    }

    std::string Route() const override { return "the PC's own"; }
    // A keyboard with a microcontroller may be there.
    bool HasRoute(const std::string& name) const override { return name == "hid"; }
    std::string Chip() const override { return {}; }
    std::uint64_t KeyboardAddress() const override { return 0; }
    std::string DefaultScript() const override {
        return "expect event 3 within 60000\nexpect event 1 within 60000\n";
    }

    double Now() const override {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - m_begin)
            .count();
    }
    ThreadKey Thread() const override { return GetCurrentThreadId(); }
    bool WaitFor(const std::function<bool()>& predicate, std::int64_t milliseconds,
                 const char* /*what*/) override {
        const double end = Now() + static_cast<double>(milliseconds);
        while (!predicate()) {
            if (Now() >= end) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(kPollInterval));
        }
        return true;
    }
    void RecheckWaits() override {}
    void StartThread(unsigned /*host*/, std::function<void()> body) override {
        std::thread(std::move(body)).detach();
    }

    void Tap(std::int64_t /*in*/, std::int64_t /*stay*/, const std::string& /*route*/) override {
        Refuse("it");
    }
    void Enter(std::int64_t /*in*/) override { Refuse("it"); }
    void Leave(std::int64_t /*in*/) override {}
    void ChipStatus(std::int64_t /*in*/, std::uint8_t /*status*/) override { Refuse("it"); }
    void Unplug() override { Refuse("it"); }
    void Plug() override { Refuse("it"); }
    void ChipBits(unsigned /*reg*/, std::uint8_t /*mask*/, std::uint8_t /*value*/) override {
        Refuse("it");
    }
    void BleClient(const std::map<std::string, std::string>& /*fields*/) override { Refuse("it"); }
    void Fault(const std::string& /*plan*/, bool /*apply*/) override { Refuse("it"); }
    std::string TagMemory() const override { return {}; }
    LiveObjects Live() const override { return {}; }
    void WaitForThreads() override {}

  private:
    static void RecordLogLine(int level, const std::wstring& line, void* context) {
        auto& self = *static_cast<WindowsStage*>(context);
        const ThreadKey thread = self.Thread();
        const std::string text = Narrow(line);
        self.m_recorder.NameThreadByLogLine(thread, text);
        Json object;
        object["kind"] = "log";
        object["level"] = level;
        object["line"] = text;
        self.m_recorder.Add(thread, self.Now(), std::move(object));
    }

    Recorder& m_recorder;
    std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
};

}  // namespace

Stage& MakeStage(const StageOptions& options, Recorder& recorder) {
    static WindowsStage* const stage = new WindowsStage(options, recorder);
    return *stage;
}

}  // namespace lab
