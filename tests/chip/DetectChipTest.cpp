// What detection finds, chip by chip, and what it sends and waits for on the way.
#include <gtest/gtest.h>

#include "chip/DetectChip.h"
#include "simulator/SpbDriver.h"
#include "tests/support/Desk.h"
#include "tests/support/ScriptedBus.h"
#include "tests/support/Seeds.h"

using namespace testing_support;

namespace {

using Texts = std::vector<std::string>;

Answer Identity(std::uint8_t first, std::uint8_t seventh, std::uint8_t last = 0x44) {
    return Gives({first, 1, 2, 3, 4, 5, 6, seventh, last});
}

Answer NoAnswer() {
    return Gives(std::vector<std::uint8_t>(9, 0xFF));
}

constexpr std::uint32_t kStartDelay = 40;
const Texts kFirstPass = {"W 00 00", "R 9"};
const Texts kBothPasses = {"W 00 00", "R 9", "sleep 40", "W 00 00", "sleep 40", "R 9"};
const Texts kWithProbe = {"W 00 00", "R 9",           "sleep 40", "W 00 00", "sleep 40",
                          "R 9",     "W 00 00 01 01", "sleep 80", "R 1"};

struct Outcome {
    const char* name;  // of a simulated chip, when there are no answers
    std::deque<Answer> answers;
    NfcLinkType linkType;
    NfcChipKind chipKind;
    std::uint32_t opDelay;
    std::uint32_t readDelay;
    Texts traffic;
    Texts told;  // error lines of the detection itself
};

const char kFailed[] = "Nfc ReadReg 0 failed!";
const char kSpb2[] = "Nfc spb2 format, like FM11N chip";

const Outcome kOutcomes[] = {
    {"082C, fast",
     {Identity(0x1D, 0x10)},
     NfcLinkSpb2,
     NfcChipFm11nt082c,
     10,
     0,
     kFirstPass,
     {"Nfc chip FM11NT082C"}},
    {"second pass fails",
     {NoAnswer(), Fails(kBusError)},
     NfcLinkSpb2,
     NfcChipLikeFm11n,
     10,
     10,
     kBothPasses,
     {kFailed, kSpb2}},
    {"nothing at all",
     {Fails(kBusError), Fails(kBusError)},
     NfcLinkSpb2,
     NfcChipLikeFm11n,
     10,
     10,
     kBothPasses,
     {kFailed, kFailed, kSpb2}},
    {"082C, slow",
     {Fails(kBusError), Identity(0x1D, 0x10)},
     NfcLinkSpb2,
     NfcChipLikeFm11n,
     10,
     10,
     kBothPasses,
     {kFailed, kSpb2}},
    {"probe finds Fanli",
     {NoAnswer(), NoAnswer(), Gives({0x22})},
     NfcLinkSpb4,
     NfcChipFanli,
     40,
     40,
     kWithProbe,
     {"Nfc chip Fanli"}},
    {"probe finds another",
     {NoAnswer(), NoAnswer(), Gives({0x21})},
     NfcLinkSpb4,
     NfcChipLikeFanli,
     40,
     40,
     kWithProbe,
     {"Nfc chip not fanli, unknown!"}},
    {"probe fails",
     {NoAnswer(), NoAnswer(), Fails(kBusError)},
     NfcLinkSpb4,
     NfcChipLikeFanli,
     40,
     40,
     kWithProbe,
     {"Nfc Extend ReadReg 0 failed!"}},
    {"081",
     {Identity(0x1D, 0x00), Identity(0x1D, 0x00)},
     NfcLinkSpb2,
     NfcChipFm11nt081,
     10,
     10,
     kBothPasses,
     {"Nfc chip FM11NT081", kSpb2}},
    {"silent in the first pass only",
     {NoAnswer(), Identity(0x1D, 0x00)},
     NfcLinkSpb2,
     NfcChipFm11nt081,
     10,
     10,
     kBothPasses,
     {"Nfc chip FM11NT081", kSpb2}},
    {"unknown",
     {Identity(0x1D, 0x20), Identity(0x1D, 0x20)},
     NfcLinkSpb2,
     NfcChipLikeFm11n,
     10,
     10,
     kBothPasses,
     {kSpb2}},
    {"eight times 0xFF",
     {NoAnswer(), Gives({255, 255, 255, 255, 255, 255, 255, 255, 0xFE})},
     NfcLinkSpb2,
     NfcChipLikeFm11n,
     10,
     10,
     kBothPasses,
     {kSpb2}},
    {"fm11nt081",
     {},
     NfcLinkSpb2,
     NfcChipFm11nt081,
     10,
     10,
     kBothPasses,
     {"Nfc chip FM11NT081", kSpb2}},
    {"fm11nt082c", {}, NfcLinkSpb2, NfcChipFm11nt082c, 10, 0, kFirstPass, {"Nfc chip FM11NT082C"}},
    {"like-fm11n", {}, NfcLinkSpb2, NfcChipLikeFm11n, 10, 10, kBothPasses, {kSpb2}},
    {"fanli", {}, NfcLinkSpb4, NfcChipFanli, 40, 40, kWithProbe, {"Nfc chip Fanli"}},
    {"like-fanli",
     {},
     NfcLinkSpb4,
     NfcChipLikeFanli,
     40,
     40,
     kWithProbe,
     {"Nfc chip not fanli, unknown!"}},
    {"silent",
     {},
     NfcLinkSpb2,
     NfcChipLikeFm11n,
     10,
     10,
     {"W 00 00", "sleep 40", "W 00 00"},
     {kFailed, kFailed, kSpb2}},
};

TEST(DetectChip, FindsFormatChipAndPauses) {
    hosted::UseScheduledClock({Seed()});
    for (const Outcome& outcome : kOutcomes) {
        SCOPED_TRACE(outcome.name);
        LogRecorder log;
        log.Announce("NFC");
        log.Announce("NfcRead first write address: 0 failed");
        log.Announce("Nfc read spb status");
        log.Announce("Nfc write spd");
        std::shared_ptr<hosted::Driver> driver;
        if (outcome.answers.empty()) {
            driver = std::make_shared<simulator::SpbDriver>(simulator::MakeChip(outcome.name));
        } else {
            const auto bus = std::make_shared<ScriptedBus>();
            bus->reads = outcome.answers;
            driver = bus;
        }
        const OpenDevice device(driver);
        g_nfcOpDelayMs = kStartDelay;
        g_nfcReadDelayMs = 50;
        NfcDeviceContext context;
        context.chipKind = NfcChipFdModeOther;  // what an earlier start found
        BusRecorder recorder;
        DetectChip(context);
        EXPECT_EQ(context.linkType, outcome.linkType);
        EXPECT_EQ(context.chipKind, outcome.chipKind);
        EXPECT_EQ(g_nfcOpDelayMs, outcome.opDelay);
        EXPECT_EQ(g_nfcReadDelayMs, outcome.readDelay);
        EXPECT_EQ(recorder.Take(), outcome.traffic);
        EXPECT_EQ(log.TakeUnannounced(), outcome.told);
    }
}

}  // namespace
