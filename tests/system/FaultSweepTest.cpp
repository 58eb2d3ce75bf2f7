// Every flow, once for each platform call that it makes and each way in which that call can fail.
// TAGPORT_FAULT_CASE=flow:fault runs just that one.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <new>

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

using Image = std::array<std::uint8_t, kImage>;

// What the flow does and leaves when nothing fails. Filled by a child process.
struct Reference {
    FlowCounts counts;
    Image before{}, after{}, again{};
    hosted::LiveCounts afterAct, afterAgain, afterStop;
    char lines[1 << 18] = {};  // what the flow logged, a line each
    bool filled = false;
};

Image ImageOf(Desk& desk) {
    const std::vector<std::uint8_t> bytes = TagBytes(desk, kImage);
    Image image{};
    std::copy(bytes.begin(), bytes.end(), image.begin());
    return image;
}

void ExpectNoMore(const FaultCase& fault, const hosted::LiveCounts& live,
                  const hosted::LiveCounts& most, const char* when) {
    if (fault.IsFailedClose()) {
        return;
    }
    const hosted::LiveCounts left = fault.Leftovers();
    EXPECT_LE(live.handles, most.handles + left.handles) << "handles " << when;
    EXPECT_LE(live.threads, most.threads + left.threads) << "threads " << when << "\n"
                                                         << hosted::DescribeThreads();
    EXPECT_LE(live.requests, most.requests + left.requests) << "requests " << when;
}

bool IsReason(const LogRecorder::Line& line, const std::string& usual) {
    if (usual.find("\n" + line.text + "\n") != std::string::npos) {
        return false;
    }
    constexpr const char* kWords[] = {"fail", "Fail", "rror", "err", "retry", "not "};
    return line.level == LOG_MESSAGE_LEVEL_ERROR ||
           std::any_of(std::begin(kWords), std::end(kWords),
                       [&](const char* word) { return line.text.find(word) != std::string::npos; });
}

std::string Joined(const LogRecorder& log) {
    std::string text = "\n";
    for (const std::string& line : log.Texts()) {
        text += line + "\n";
    }
    return text;
}

void CheckLog(const Flow& flow, const FaultCase& fault, const Desk& desk, bool worked,
              const std::string& usual) {
    for (const std::string& line : flow.success) {
        if (worked) {
            EXPECT_TRUE(desk.log.Has(line)) << "a success without \"" << line << "\"";
        }
    }
    if (!worked && !fault.MaySilentlyFail()) {
        const auto lines = desk.log.Lines();
        EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const LogRecorder::Line& line) {
            return IsReason(line, usual);
        })) << "failed, and no line tells why";
    }
    if (!worked && !flow.success.empty()) {
        EXPECT_FALSE(std::all_of(flow.success.begin(), flow.success.end(),
                                 [&](const std::string& line) { return desk.log.Has(line); }))
            << "failed, and the log tells of a success";
    }
}

void CheckTag(const Image& found, const Reference& reference, bool worked) {
    if (worked) {
        EXPECT_TRUE(found == reference.after) << "a success with another image on the tag";
        return;
    }
    for (std::size_t i = 0; i < kImage; i += kBlock) {
        const auto same = [&](const Image& image) {
            return std::memcmp(&found[i], &image[i], kBlock) == 0;
        };
        EXPECT_TRUE(same(reference.before) || same(reference.after)) << "block " << i / kBlock;
    }
}

// In a child. Without a fault fills the reference, with one compares with it.
void RunCase(const Flow& flow, const FaultCase* fault, Reference& reference) {
    alarm(kRealSeconds);
    hosted::ScheduledOptions options;
    options.maxSteps = kMostSteps;
    hosted::UseScheduledClock(options);
    Desk desk(flow.routes, flow.chip);
    flow.prepare(desk);
    Desk::Pass(kSettle);
    desk.log.TakeUnannounced();  // the comparison with the reference judges error lines
    desk.log.Clear();
    const Image before = ImageOf(desk);
    bool worked = false;
    FlowCounts counts;
    hosted::Micros took = 0;
    {
        const FaultInjection injection(desk.pc, fault);
        const hosted::Micros start = hosted::Now();
        worked = flow.act(desk);
        took = hosted::Now() - start;
        counts = injection.Counts();
        Desk::Pass(kSettle);
    }
    const std::string lines = Joined(desk.log);
    const Image after = ImageOf(desk);
    const hosted::LiveCounts afterAct = hosted::Live();
    EXPECT_LE(took, kLongestFlow);
    const bool unclosed = fault != nullptr && fault->IsFailedClose();
    if (fault != nullptr) {
        CheckLog(flow, *fault, desk, worked, reference.lines);
        // A start whose detection is disturbed takes any chip for an FM11N one, and says so.
        constexpr const char* kGuess = "\nNfc spb2 format, like FM11N chip\n";
        const bool guessed = lines.find(kGuess) != std::string::npos &&
                             std::strstr(reference.lines, kGuess) == nullptr;
        if (!guessed) {
            CheckTag(after, reference, worked);
        }
        ExpectNoMore(*fault, afterAct, reference.afterAct, "behind the flow");
    } else {
        EXPECT_TRUE(worked) << "without a fault" << lines;
    }
    desk.pc.Faults({});
    const bool isHid = flow.routes[0] == simulator::PcRoute::kHid;
    if (fault != nullptr && fault->LosesDevice()) {
        desk.pc.Unplug();
        desk.pc.Plug();
    }
    if (desk.manager != nullptr && ((fault != nullptr && fault->LosesDevice()) || isHid)) {
        EXPECT_TRUE(desk.manager->DeviceInit() || unclosed) << Joined(desk.log);
    }
    desk.log.TakeUnannounced();
    desk.log.Clear();
    const bool again = flow.again(desk);
    EXPECT_TRUE(again || unclosed) << "once more, without the fault" << Joined(desk.log);
    Desk::Pass(kSettle);
    const Image afterAgain = ImageOf(desk);
    const hosted::LiveCounts liveAgain = hosted::Live();
    desk.manager = nullptr;
    Desk::Pass(kSettle);
    const hosted::LiveCounts afterStop = hosted::Live();
    desk.log.TakeUnannounced();
    if (fault == nullptr) {
        reference.counts = counts;
        reference.before = before;
        reference.after = after;
        reference.again = afterAgain;
        reference.afterAct = afterAct;
        reference.afterAgain = liveAgain;
        reference.afterStop = afterStop;
        ASSERT_LT(lines.size(), sizeof(reference.lines));
        std::copy(lines.begin(), lines.end(), reference.lines);
        reference.filled = true;
    } else {
        EXPECT_TRUE(unclosed || afterAgain == reference.again)
            << "once more: another image on the tag";
        ExpectNoMore(*fault, liveAgain, reference.afterAgain, "once more");
        ExpectNoMore(*fault, afterStop, reference.afterStop, "behind the stop");
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
    void* const shared =
        mmap(nullptr, sizeof(Reference), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    auto& reference = *new (shared) Reference;
    ASSERT_EQ(RunInChild([&] { RunCase(flow, nullptr, reference); }), 0);
    ASSERT_TRUE(reference.filled);
    const auto start = std::chrono::steady_clock::now();
    const bool bluetooth = flow.routes[0] == simulator::PcRoute::kBle;
    std::size_t cases = 0;
    std::vector<std::string> failed;  // told at the end: a child inherits what has failed
    for (const FaultCase& fault : CasesFor(reference.counts, bluetooth)) {
        const std::string name = prefix + fault.Name();
        if (wanted != nullptr && name != wanted) {
            continue;
        }
        ++cases;
        if (RunInChild([&] { RunCase(flow, &fault, reference); }) != 0) {
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
    munmap(shared, sizeof(Reference));
}

INSTANTIATE_TEST_SUITE_P(Flows, FaultSweep, ::testing::ValuesIn(Flows()),
                         [](const auto& one) { return one.param.name; });

}  // namespace
