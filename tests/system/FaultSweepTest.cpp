// Every flow, once for each platform call that it makes and each way in which that call can fail.
// TAGPORT_FAULT_CASE=fault runs just that one; --gtest_filter chooses the flow.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
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
constexpr hosted::Micros kLonger = 5 * hosted::kSecond;  // than usual, for a fault that passes
constexpr std::uint64_t kMostSteps = 1'000'000;
constexpr unsigned kRealSeconds = 60;  // for a loop that never reaches the layer
constexpr unsigned kMostFailures = 5;

using Image = std::array<char, kImage>;

// What a flow did and what it left: on the tag, and alive. Plain, as it goes through shared memory.
struct Outcome {
    bool worked = false;
    hosted::Micros took = 0;
    FlowCounts counts;
    Image before{}, after{}, again{};
    hosted::LiveCounts beforeAct, afterAct, afterAgain, afterStop;
    char lines[1 << 18] = {};  // that the flow logged, with a line end before the first

    // How many lines begin so.
    unsigned Logged(const std::string& beginning) const {
        const std::string start = "\n" + beginning;
        unsigned count = 0;
        for (const char* at = lines; (at = std::strstr(at, start.c_str())) != nullptr; ++at) {
            ++count;
        }
        return count;
    }
};

Image ImageOf(PcWithHost& setup) {
    Image image{};
    setup.ImageOnChip(kImage).copy(image.data(), kImage);
    return image;
}

// Error lines are judged against those of the flow without a fault.
void Forget(LogRecorder& log) {
    log.TakeUnannounced();
    log.Clear();
}

// Times, counts and codes differ from run to run.
std::string WithoutDigits(std::string text) {
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    text.erase(std::remove_if(text.begin(), text.end(), isDigit), text.end());
    return text;
}

bool IsReason(const LogRecorder::Line& line) {
    // That a thread ends, that nobody found fault with a write, what a chip was taken for.
    constexpr const char* kNone[] = {
        "NFC WaitOnInterruptLoop return", "NFC ReadKeyboardDataThread return",
        "NfcExtend Check WriteTag , firstFailAddr: 0,", "Nfc spb2 format", "Nfc chip "};
    constexpr const char* kWords[] = {"fail", "Fail", "rror"};
    const auto has = [&](const char* word) { return line.text.find(word) != std::string::npos; };
    return std::none_of(std::begin(kNone), std::end(kNone), has) &&
           (line.level == LOG_MESSAGE_LEVEL_ERROR ||
            std::any_of(std::begin(kWords), std::end(kWords), has));
}

void CheckLog(const Flow& flow, const FaultCase& fault, const Outcome& now,
              const std::vector<LogRecorder::Line>& log, const Outcome& usual) {
    const bool success = std::all_of(flow.success.begin(), flow.success.end(),
                                     [&](const std::string& line) { return now.Logged(line) > 0; });
    EXPECT_TRUE(flow.success.empty() || success == now.worked) << "what the log reports";
    const std::string ordinary = flow.isRefused ? "" : WithoutDigits(usual.lines);
    const bool reason = std::any_of(log.begin(), log.end(), [&](const LogRecorder::Line& line) {
        return IsReason(line) &&
               ordinary.find("\n" + WithoutDigits(line.text) + "\n") == std::string::npos;
    });
    EXPECT_TRUE(now.worked || reason || fault.maySilentlyFail) << "failed, and no line tells why";
}

void CheckTag(const Flow& flow, const Outcome& now, const Outcome& usual) {
    // A start whose detection is disturbed takes a Fanli chip for an FM11N one, and logs that.
    if (flow.chip == "fanli" && now.Logged("Nfc spb2 format, like FM11N chip") > 0) {
        return;
    }
    // A chip is written block by block, from the first on; a keyboard takes whole images.
    const bool blocks =
        flow.route == simulator::PcRoute::kI2c || flow.route == simulator::PcRoute::kUsb;
    const std::size_t step = blocks ? kBlock : kImage;
    const auto same = [&](const Image& image, std::size_t begin, std::size_t end) {
        return std::equal(&now.after[begin], &now.after[0] + end, &image[begin]);
    };
    std::size_t written = 0;
    while (written < kImage && same(usual.after, written, written + step)) {
        written += step;
    }
    EXPECT_TRUE(written == kImage || (!now.worked && same(usual.before, written, kImage)))
        << "a success with another image, or neither old nor new after byte " << written;
}

enum class Moment { kAfterFlow, kOnceMore, kAfterStop };

// What may be left over beyond the usual, where it has come to that and as long as it may stay.
// docs/reliability.md lists them.
hosted::LiveCounts Leftovers(const Flow& flow, const FaultCase& fault, const Outcome& now,
                             const Outcome& usual, Moment moment) {
    constexpr hosted::LiveCounts kHandle{1, 0, 0};
    constexpr hosted::LiveCounts kThread{0, 1, 0};
    constexpr hosted::LiveCounts kWaitingThread{2, 1, 1};  // with its handle, event and request
    const bool afterFlow = moment == Moment::kAfterFlow;
    const bool ble = flow.route == simulator::PcRoute::kBle;
    const bool hid = flow.route == simulator::PcRoute::kHid;
    if (fault.Refuses(hosted::Call::kCloseHandle)) {
        return kHandle;
    }
    if (afterFlow && (ble || hid) && now.Logged("NFC error creating overlapped event for ") > 0) {
        return kHandle;  // a thread that could not begin, until the next start
    }
    if (afterFlow && flow.startsDevice && ble) {
        return kHandle;  // a connect that failed keeps its event for the next one
    }
    if (!afterFlow && now.Logged("NfcThreadCreate fail") > 0 &&
        now.Logged("NfcThreadCreate exit Begin") == 0) {
        return kThread;  // a deferred call thread let go of, until its wake-up
    }
    if ((fault.Refuses(hosted::Call::kEnumerate) || fault.Refuses(hosted::Call::kHid)) &&
        now.worked && now.counts.calls == usual.counts.calls) {
        return kHandle;  // of a search. All but a release would have changed what comes next
    }
    if (moment == Moment::kAfterStop && fault.Refuses(hosted::Call::kCancelIoEx)) {
        return kWaitingThread;  // the request cannot be left, so the thread waits for its end
    }
    if (afterFlow && hid && fault.name.rfind("interrupt", 0) == 0 && fault.maySilentlyFail) {
        return kWaitingThread;  // a keyboard that does not refuse the interrupt wait
    }
    return {};
}

// The thread that takes a keyboard's reports does not come back by itself.
bool HasLostReports(const FaultCase& fault, const Outcome& now, const Outcome& usual) {
    constexpr const char* kEnd = "NFC ReadKeyboardDataThread return";
    constexpr const char* kNoEvent = "NFC error creating overlapped event for ReadKeyboardData";
    return !fault.name.empty() &&
           (now.Logged(kEnd) > usual.Logged(kEnd) || now.Logged(kNoEvent) > 0);
}

// In a child. Without a fault it fills what is usual, which all others are compared with.
void RunCase(const Flow& flow, const FaultCase& fault, Outcome& usual) {
    alarm(kRealSeconds);
    hosted::ScheduledOptions options;
    options.maxSteps = kMostSteps;
    hosted::UseScheduledClock(options);
    LinkDockService::SetDeliveryHabits(flow.habits);
    PcWithHost setup({flow.route}, flow.chip);
    flow.prepare(setup);
    PcWithHost::Pass(kSettle);
    Forget(setup.log);
    Outcome now;
    now.before = ImageOf(setup);
    now.beforeAct = hosted::Live();
    now.counts = RunUnder(setup, fault, [&] {
        const hosted::Micros start = hosted::Now();
        now.worked = flow.act(setup, kNew);
        now.took = hosted::Now() - start;
    });
    const std::vector<LogRecorder::Line> log = setup.log.Lines();
    std::string lines = "\n";
    for (const LogRecorder::Line& line : log) {
        lines += line.text + "\n";
    }
    ASSERT_LT(lines.copy(now.lines, sizeof(now.lines)), sizeof(now.lines));
    now.after = ImageOf(setup);
    now.afterAct = hosted::Live();
    setup.pc.Faults({});
    if (fault.losesDevice) {
        setup.pc.Unplug();
        setup.pc.Plug();
    }
    const bool lostReports = HasLostReports(fault, now, usual);
    if (setup.manager != nullptr && !flow.startsDevice && (fault.losesDevice || lostReports)) {
        EXPECT_TRUE(setup.StartDevices(*setup.manager));
    }
    Forget(setup.log);
    EXPECT_NE(flow.act(setup, kNewer), flow.isRefused) << "once more, without the fault";
    PcWithHost::Pass(kSettle);
    now.again = ImageOf(setup);
    now.afterAgain = hosted::Live();
    setup.manager = nullptr;
    PcWithHost::Pass(kSettle);
    Forget(setup.log);
    now.afterStop = hosted::Live();
    if (fault.name.empty()) {
        EXPECT_NE(now.worked, flow.isRefused) << "without a fault" << lines;
        usual = now;
    }
    const bool lasts = fault.lasts || fault.maySilentlyFail || lostReports;
    EXPECT_LE(now.took, lasts ? flow.longest : usual.took + kLonger);
    // From the middle on there may be nothing left but what only the log reports, as a radio.
    const bool mustFail = fault.mustFail && (fault.nth <= 1 || !flow.success.empty());
    EXPECT_FALSE(now.worked && (mustFail || flow.isRefused));
    EXPECT_TRUE(!fault.reached || fault.reached(now.counts, fault.nth)) << "never came to it";
    CheckLog(flow, fault, now, log, usual);
    CheckTag(flow, now, usual);
    EXPECT_TRUE(now.again == usual.again) << "once more: another image on the tag";
    const bool undone = flow.startsDevice && !now.worked;
    const auto check = [&](Moment moment, const hosted::LiveCounts& live,
                           const hosted::LiveCounts& most) {
        const hosted::LiveCounts leftovers = Leftovers(flow, fault, now, usual, moment);
        EXPECT_LE(live.handles, most.handles + leftovers.handles);
        EXPECT_LE(live.threads, most.threads + leftovers.threads);
        EXPECT_LE(live.requests, most.requests + leftovers.requests);
    };
    check(Moment::kAfterFlow, now.afterAct, undone ? now.beforeAct : usual.afterAct);
    check(Moment::kOnceMore, now.afterAgain, usual.afterAgain);
    // Those that end with their device come back with the next message.
    EXPECT_TRUE(fault.losesDevice || now.afterAgain.threads >= usual.afterAgain.threads);
    check(Moment::kAfterStop, now.afterStop, usual.afterStop);
}

class FaultSweep : public ::testing::TestWithParam<Flow> {};

TEST_P(FaultSweep, EveryCallFailsInEveryWay) {
    const Flow& flow = GetParam();
    const char* const wanted = std::getenv("TAGPORT_FAULT_CASE");
    // A sanitizer makes a case ten times as dear: there the environment asks for one of so many.
    const char* const step = wanted == nullptr ? std::getenv("TAGPORT_CASE_STEP") : nullptr;
    const std::size_t stride = step == nullptr ? 1 : std::strtoul(step, nullptr, 10);
    Outcome& usual = Shared<Outcome>();
    ASSERT_EQ(RunInChild([&] { RunCase(flow, {}, usual); }), 0);
    std::size_t cases = 0;
    std::size_t index = 0;
    std::vector<std::string> failed;  // reported at the end: a child inherits what has failed
    for (const FaultCase& fault : CasesFor(usual.counts, flow.route)) {
        if ((wanted != nullptr && fault.name != wanted) || index++ % stride != 0 ||
            failed.size() == kMostFailures) {
            continue;
        }
        ++cases;
        const auto body = [&] {
            RunCase(flow, fault, usual);
            EXPECT_FALSE(HasLeaked());
        };
        if (RunInChild(body) != 0) {
            failed.push_back(fault.name);
        }
    }
    for (const std::string& name : failed) {
        ADD_FAILURE() << "repeat with: TAGPORT_FAULT_CASE='" << name
                      << "' fault_sweep_tests --gtest_filter='*/" << flow.name << "'";
    }
    EXPECT_GT(cases, 0U) << "no such case";
    std::printf("%-24s %5zu cases\n", flow.name.c_str(), cases);
}

INSTANTIATE_TEST_SUITE_P(Flows, FaultSweep, ::testing::ValuesIn(Flows()),
                         [](const auto& one) { return one.param.name; });

}  // namespace
