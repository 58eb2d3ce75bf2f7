// Every flow, once for each platform call that it makes and each way in which that call can fail.
// TAGPORT_FAULT_CASE=flow:fault runs just that one.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>

#include "platform/TraceLog.h"
#include "tests/support/Seeds.h"
#include "tests/system/FaultCases.h"
#include "tests/system/Flows.h"

using namespace testing_support;

namespace {

constexpr std::size_t kImage = 240;
constexpr std::size_t kBlock = 16;
constexpr hosted::Micros kSettle = 30 * hosted::kSecond;
constexpr hosted::Micros kLongestFlow = 60 * hosted::kSecond;
constexpr std::uint64_t kMostSteps = 1'000'000;
constexpr unsigned kRealSeconds = 60;  // for a loop that never reaches the layer
constexpr unsigned kMostFailures = 5;

using Image = std::array<char, kImage>;

// What a flow did and what it left: on the tag, and alive. Plain, as it goes through shared memory.
struct Outcome {
    bool worked = false;
    FlowCounts counts;
    Image before{}, after{}, again{};
    hosted::LiveCounts afterAct, afterAgain, afterStop;
    char lines[1 << 18] = {};  // what the flow logged, a line each

    bool Logged(const std::string& line) const {
        return std::strstr(lines, ("\n" + line + "\n").c_str()) != nullptr;
    }
};

Image ImageOf(Desk& desk) {
    Image image{};
    desk.ImageOnChip(kImage).copy(image.data(), kImage);
    return image;
}

// Error lines are judged against those of the flow without a fault.
void Settle(Desk& desk) {
    Desk::Pass(kSettle);
    desk.log.TakeUnannounced();
    desk.log.Clear();
}

bool IsReason(const LogRecorder::Line& line) {
    constexpr const char* kWords[] = {"fail", "Fail", "rror", "err", "retry", "not "};
    return line.level == LOG_MESSAGE_LEVEL_ERROR ||
           std::any_of(std::begin(kWords), std::end(kWords),
                       [&](const char* word) { return line.text.find(word) != std::string::npos; });
}

void CheckLog(const Flow& flow, const FaultCase& fault, const Outcome& now,
              const std::vector<LogRecorder::Line>& log, const Outcome& usual) {
    const auto told = std::count_if(flow.success.begin(), flow.success.end(),
                                    [&](const std::string& line) { return now.Logged(line); });
    const bool success = static_cast<std::size_t>(told) == flow.success.size();
    if (now.worked) {
        EXPECT_TRUE(success) << "a success that the log does not tell of";
        return;
    }
    EXPECT_TRUE(!success || flow.success.empty()) << "failed, and the log tells of a success";
    const bool reason = std::any_of(log.begin(), log.end(), [&](const LogRecorder::Line& line) {
        return IsReason(line) && !usual.Logged(line.text);
    });
    EXPECT_TRUE(reason || fault.maySilentlyFail) << "failed, and no line tells why";
}

void CheckTag(const Outcome& now, const Outcome& usual) {
    // A start whose detection is disturbed takes any chip for an FM11N one, and says so.
    constexpr const char* kGuess = "Nfc spb2 format, like FM11N chip";
    if (now.Logged(kGuess) && !usual.Logged(kGuess)) {
        return;
    }
    if (now.worked) {
        EXPECT_TRUE(now.after == usual.after) << "a success with another image on the tag";
        return;
    }
    for (std::size_t i = 0; i < kImage; i += kBlock) {
        const auto same = [&](const Image& image) {
            return std::memcmp(&now.after[i], &image[i], kBlock) == 0;
        };
        EXPECT_TRUE(same(usual.before) || same(usual.after)) << "block " << i / kBlock;
    }
}

void CheckLive(const FaultCase& fault, const hosted::LiveCounts& live,
               const hosted::LiveCounts& usual, const char* when) {
    EXPECT_LE(live.handles, usual.handles + fault.leftovers.handles) << "handles " << when;
    EXPECT_LE(live.threads, usual.threads + fault.leftovers.threads) << "threads " << when;
    EXPECT_LE(live.requests, usual.requests + fault.leftovers.requests) << "requests " << when;
}

// In a child. Without a fault it fills what is usual, which all others are compared with.
void RunCase(const Flow& flow, const FaultCase& fault, Outcome& usual) {
    alarm(kRealSeconds);
    hosted::ScheduledOptions options;
    options.maxSteps = kMostSteps;
    hosted::UseScheduledClock(options);
    Desk desk({flow.route}, flow.chip);
    flow.prepare(desk);
    Settle(desk);
    Outcome now;
    now.before = ImageOf(desk);
    {
        const FaultInjection injection(desk, fault);
        const hosted::Micros start = hosted::Now();
        now.worked = flow.act(desk);
        EXPECT_LE(hosted::Now() - start, kLongestFlow);
        now.counts = injection.Counts();
        Desk::Pass(kSettle);
    }
    const std::vector<LogRecorder::Line> log = desk.log.Lines();
    std::string lines = "\n";
    for (const LogRecorder::Line& line : log) {
        lines += line.text + "\n";
    }
    ASSERT_LT(lines.size(), sizeof(now.lines));
    lines.copy(now.lines, lines.size());
    now.after = ImageOf(desk);
    now.afterAct = hosted::Live();
    desk.pc.Faults({});
    if (fault.losesDevice) {
        desk.pc.Unplug();
        desk.pc.Plug();
    }
    if (desk.manager != nullptr && (fault.losesDevice || flow.route == simulator::PcRoute::kHid)) {
        EXPECT_TRUE(desk.manager->DeviceInit() || fault.isFailedClose);
    }
    desk.log.TakeUnannounced();
    desk.log.Clear();
    EXPECT_TRUE(flow.again(desk) || fault.isFailedClose) << "once more, without the fault";
    Settle(desk);
    now.again = ImageOf(desk);
    now.afterAgain = hosted::Live();
    desk.manager = nullptr;
    Settle(desk);
    now.afterStop = hosted::Live();
    if (fault.name.empty()) {
        EXPECT_TRUE(now.worked) << "without a fault" << lines;
        usual = now;
    }
    CheckLog(flow, fault, now, log, usual);
    CheckTag(now, usual);
    if (!fault.isFailedClose) {
        EXPECT_TRUE(now.again == usual.again) << "once more: another image on the tag";
        CheckLive(fault, now.afterAct, usual.afterAct, "behind the flow");
        CheckLive(fault, now.afterAgain, usual.afterAgain, "once more");
        CheckLive(fault, now.afterStop, usual.afterStop, "behind the stop");
    }
}

class FaultSweep : public ::testing::TestWithParam<Flow> {};

TEST_P(FaultSweep, EveryCallFailsInEveryWay) {
    const Flow& flow = GetParam();
    const char* const wanted = std::getenv("TAGPORT_FAULT_CASE");
    const std::string prefix = flow.name + ":";
    if (wanted != nullptr && std::strncmp(wanted, prefix.c_str(), prefix.size()) != 0) {
        GTEST_SKIP() << "another flow's case is wanted";
    }
    Outcome& usual = Shared<Outcome>();
    ASSERT_EQ(RunInChild([&] { RunCase(flow, {}, usual); }), 0);
    const auto start = std::chrono::steady_clock::now();
    // A sanitizer makes a case ten times as dear: there the environment asks for one of so many.
    const char* const step = wanted == nullptr ? std::getenv("TAGPORT_CASE_STEP") : nullptr;
    const std::size_t stride = step == nullptr ? 1 : std::strtoul(step, nullptr, 10);
    std::size_t cases = 0;
    std::size_t index = 0;
    std::vector<std::string> failed;  // told at the end: a child inherits what has failed
    for (const FaultCase& fault : CasesFor(usual.counts, flow.route == simulator::PcRoute::kBle)) {
        const std::string name = prefix + fault.name;
        if ((wanted != nullptr && name != wanted) || index++ % stride != 0) {
            continue;
        }
        ++cases;
        if (RunInChild([&] { RunCase(flow, fault, usual); }) != 0) {
            failed.push_back(name);
            if (failed.size() == kMostFailures) {
                break;
            }
        }
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    for (const std::string& name : failed) {
        ADD_FAILURE() << name << "\nrepeat with: TAGPORT_FAULT_CASE='" << name
                      << "' fault_sweep_tests";
    }
    EXPECT_GT(cases, 0U) << "no such case";
    std::printf("%-24s %5zu cases in %6.1f s\n", flow.name.c_str(), cases, took.count());
}

INSTANTIATE_TEST_SUITE_P(Flows, FaultSweep, ::testing::ValuesIn(Flows()),
                         [](const auto& one) { return one.param.name; });

}  // namespace
