// Every flow, once for each platform call that it makes and each way in which that call can fail.
// TAGPORT_FAULT_CASE=fault runs just that one; --gtest_filter chooses the flow.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "platform/services/TraceLog.h"
#include "tests/system/FaultSweep.h"

using namespace testing_support;

namespace {

constexpr std::size_t kImage = 240;
constexpr std::size_t kBlock = 16;
// Than usual, for a fault that passes.
constexpr emulation::Micros kLonger = 5 * emulation::kSecond;
constexpr std::uint64_t kMostSteps = 1'000'000;
constexpr unsigned kRealSeconds = 60;  // for a loop that never reaches the layer
constexpr unsigned kMostFailures = 5;

using Image = std::array<char, kImage>;

enum Moment { kBeforeFlow, kAfterFlow, kOnceMore, kAfterStop, kMoments };

// What a flow did and what it left: on the tag, and alive. Plain, as it goes through shared memory.
struct Outcome {
    bool worked = false;
    emulation::Micros took = 0;
    FlowCounts counts{};
    Image images[kMoments] = {};
    emulation::LiveCounts live[kMoments];
    char lines[1 << 18] = {};  // that the flow logged, with a line end before the first

    void Look(Moment moment, PcWithHost& setup) {
        setup.ImageOnChip(kImage).copy(images[moment].data(), kImage);
        live[moment] = emulation::Live();
    }
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

// Times, counts and codes differ from run to run.
std::string WithoutDigits(std::string text) {
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    text.erase(std::remove_if(text.begin(), text.end(), isDigit), text.end());
    return text;
}

bool IsReason(const LogRecorder::Line& line) {
    const auto has = [&](const char* word) { return line.text.find(word) != std::string::npos; };
    // That a thread ends, that nobody found fault with a write, what a chip was taken for.
    constexpr const char* kNone[] = {
        "NFC WaitOnInterruptLoop return", "NFC ReadKeyboardDataThread return",
        "NfcExtend Check WriteTag , firstFailAddr: 0,", "Nfc spb2 format", "Nfc chip "};
    return std::none_of(std::begin(kNone), std::end(kNone), has) &&
           (line.level == LOG_MESSAGE_LEVEL_ERROR || has("fail") || has("Fail") || has("rror"));
}

void CheckLog(const Flow& flow, const FaultCase& fault, const Outcome& now,
              const std::vector<LogRecorder::Line>& log, const Outcome& usual) {
    const bool success = std::all_of(flow.success.begin(), flow.success.end(),
                                     [&](const std::string& line) { return now.Logged(line) > 0; });
    EXPECT_TRUE(flow.success.empty() || success == now.worked) << "what the log reports";
    EXPECT_TRUE(fault.counter != kMemory || std::strstr(now.lines, "memcpy_s") == nullptr)
        << "a copy to memory that is not there";
    const std::string ordinary = flow.IsRefused() ? "" : WithoutDigits(usual.lines);
    const bool reason = std::any_of(log.begin(), log.end(), [&](const LogRecorder::Line& line) {
        return IsReason(line) &&
               ordinary.find("\n" + WithoutDigits(line.text) + "\n") == std::string::npos;
    });
    EXPECT_TRUE(now.worked || reason || fault.maySilentlyFail) << "failed, and no line says why";
}

void CheckTag(const Flow& flow, const Outcome& now, const Outcome& usual) {
    // A start whose detection is disturbed takes any chip for an FM11N one, and logs that.
    if (simulator::FindKind(simulator::kChipKinds, flow.on.chip)->NeedsDetection() &&
        now.Logged("Nfc spb2 format, like FM11N chip") > 0) {
        return;
    }
    // A chip is written block by block, from the first on; a keyboard takes whole images.
    const std::size_t step = flow.on.IsChip() ? kBlock : kImage;
    const auto same = [&](const Image& image, std::size_t begin, std::size_t end) {
        const Image& after = now.images[kAfterFlow];
        return std::equal(&after[begin], &after[0] + end, &image[begin]);
    };
    std::size_t written = 0;
    while (written < kImage && same(usual.images[kAfterFlow], written, written + step)) {
        written += step;
    }
    EXPECT_TRUE(written == kImage ||
                (!now.worked && same(usual.images[kBeforeFlow], written, kImage)))
        << "a success with another image, or neither old nor new after byte " << written;
    EXPECT_TRUE(now.images[kOnceMore] == usual.images[kOnceMore]) << "once more: another image";
}

// What may be left over beyond the usual, where it has come to that and as long as it may stay.
// docs/reliability.md lists them.
emulation::LiveCounts Leftovers(const Flow& flow, const FaultCase& fault, const Outcome& now,
                                const Outcome& usual, Moment moment) {
    constexpr emulation::LiveCounts kHandle{1, 0, 0};
    constexpr emulation::LiveCounts kThread{0, 1, 0};
    constexpr emulation::LiveCounts kWaitingThread{2, 1, 1};  // with its handle, event and request
    using emulation::Call;
    const bool afterFlow = moment == kAfterFlow;
    const bool isCloseRefused = fault.Refuses(Call::kCloseHandle);
    // Until the next start.
    const bool threadDidNotBegin = afterFlow && !flow.on.IsChip() &&
                                   now.Logged("NFC error creating overlapped event for ") > 0;
    // For the next connect.
    const bool failedConnectKeepsEvent = afterFlow && flow.startsDevice && flow.on.IsBle();
    // Of a search: all but a release would have changed what comes next.
    const bool isReleaseRefused = (fault.Refuses(Call::kEnumerate) || fault.Refuses(Call::kHid)) &&
                                  now.worked &&
                                  std::equal(&now.counts[0], &now.counts[kRead], &usual.counts[0]);
    if (isCloseRefused || threadDidNotBegin || failedConnectKeepsEvent || isReleaseRefused) {
        return kHandle;
    }
    // Until its wake-up.
    const bool deferredThreadIsLetGoOf = !afterFlow && now.Logged("NfcThreadCreate fail") > 0 &&
                                         now.Logged("NfcThreadCreate exit Begin") == 0;
    if (deferredThreadIsLetGoOf) {
        return kThread;
    }
    const bool cannotLeaveItsRequest = moment == kAfterStop && fault.Refuses(Call::kCancelIoEx);
    const bool keyboardKeepsInterruptWait =
        afterFlow && flow.on.IsHid() && fault.counter == kInterrupt && fault.maySilentlyFail;
    return cannotLeaveItsRequest || keyboardKeepsInterruptWait ? kWaitingThread
                                                               : emulation::LiveCounts{};
}

// The thread that takes a keyboard's reports does not come back by itself.
bool HasLostReports(const FaultCase& fault, const Outcome& now, const Outcome& usual) {
    constexpr const char* kEnd = "NFC ReadKeyboardDataThread return";
    constexpr const char* kNoEvent = "NFC error creating overlapped event for ReadKeyboardData";
    return !fault.name.empty() &&
           (now.Logged(kEnd) > usual.Logged(kEnd) || now.Logged(kNoEvent) > 0);
}

// Plays the flow under the fault, and then once more without it.
Outcome Play(PcWithHost& setup, const Flow& flow, const FaultCase& fault, const Outcome& usual,
             std::vector<LogRecorder::Line>& log) {
    flow.prepare(setup);
    PcWithHost::Pass(kSettle);
    setup.log.TakeMarked();  // forgets the lines: errors are compared with those without a fault
    Outcome now;
    now.Look(kBeforeFlow, setup);
    now.counts = RunUnder(setup, fault, [&] {
        const emulation::Micros start = emulation::Now();
        now.worked = flow.act(setup, kNew);
        now.took = emulation::Now() - start;
    });
    log = setup.log.Lines();
    std::string lines = "\n";
    for (const LogRecorder::Line& line : log) {
        lines += line.text + "\n";
    }
    EXPECT_LT(lines.copy(now.lines, sizeof(now.lines) - 1), sizeof(now.lines) - 1);
    now.Look(kAfterFlow, setup);
    setup.pc.Faults({});
    if (fault.losesDevice) {
        setup.pc.Unplug();
        setup.pc.Plug();
    }
    if (setup.manager != nullptr && !flow.startsDevice &&
        (fault.losesDevice || HasLostReports(fault, now, usual))) {
        EXPECT_TRUE(setup.StartDevices(*setup.manager));
    }
    setup.log.TakeMarked();
    EXPECT_NE(flow.act(setup, kNewer), flow.IsRefused()) << "once more, without the fault";
    PcWithHost::Pass(kSettle);
    now.Look(kOnceMore, setup);
    setup.manager = nullptr;
    PcWithHost::Pass(kSettle);
    setup.log.TakeMarked();
    now.Look(kAfterStop, setup);
    return now;
}

void CheckLive(const Flow& flow, const FaultCase& fault, const Outcome& now, const Outcome& usual) {
    for (const Moment moment : {kAfterFlow, kOnceMore, kAfterStop}) {
        const bool isUndone = flow.startsDevice && !now.worked && moment == kAfterFlow;
        const emulation::LiveCounts& live = now.live[moment];
        const emulation::LiveCounts& most = isUndone ? now.live[kBeforeFlow] : usual.live[moment];
        const emulation::LiveCounts more = Leftovers(flow, fault, now, usual, moment);
        EXPECT_LE(live.handles, most.handles + more.handles) << moment;
        EXPECT_LE(live.threads, most.threads + more.threads) << moment;
        EXPECT_LE(live.requests, most.requests + more.requests) << moment;
    }
    // Those that end with their device come back with the next message.
    EXPECT_TRUE(fault.losesDevice || now.live[kOnceMore].threads >= usual.live[kOnceMore].threads);
}

// In a child. Without a fault it fills what is usual, which all others are compared with.
void RunCase(const Flow& flow, const FaultCase& fault, Outcome& usual) {
    alarm(kRealSeconds);
    emulation::ScheduledOptions options;
    options.maxSteps = kMostSteps;
    emulation::UseScheduledClock(options);
    LinkDockService::SetDeliveryHabits(flow.on.habits);
    PcWithHost setup({flow.on.route}, flow.on.chip);
    std::vector<LogRecorder::Line> log;
    const Outcome now = Play(setup, flow, fault, usual, log);
    if (fault.name.empty()) {
        EXPECT_NE(now.worked, flow.IsRefused()) << "without a fault" << now.lines;
        usual = now;
    }
    const bool lasts = fault.lasts || fault.maySilentlyFail || HasLostReports(fault, now, usual);
    EXPECT_LE(now.took, lasts ? flow.longest : usual.took + kLonger);
    // From the middle on there may be nothing left but what only the log reports, as a radio.
    const bool mustFail = fault.mustFail && (fault.nth <= 1 || !flow.success.empty());
    EXPECT_FALSE(now.worked && (mustFail || flow.IsRefused()));
    EXPECT_TRUE(fault.IsReached(now.counts)) << "never came to it";
    CheckLog(flow, fault, now, log, usual);
    CheckTag(flow, now, usual);
    CheckLive(flow, fault, now, usual);
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
    unsigned failures = 0;
    for (const FaultCase& fault : CasesFor(usual.counts, flow.on)) {
        if ((wanted != nullptr && fault.name != wanted) || index++ % stride != 0 ||
            failures == kMostFailures) {
            continue;
        }
        ++cases;
        const auto body = [&] {
            RunCase(flow, fault, usual);
            EXPECT_FALSE(HasLeaked());
        };
        if (RunInChild(body) != 0) {
            ++failures;
            ADD_FAILURE() << "repeat with: TAGPORT_FAULT_CASE='" << fault.name
                          << "' fault_sweep_tests --gtest_filter='*/" << flow.name << "'";
        }
    }
    EXPECT_GT(cases, 0U) << "no such case";
    std::printf("%-24s %5zu cases\n", flow.name.c_str(), cases);
}

INSTANTIATE_TEST_SUITE_P(Flows, FaultSweep, ::testing::ValuesIn(Flows()),
                         [](const auto& one) { return one.param.name; });

}  // namespace
