// One transfer from its start to its end: results, lines, times, and what stays behind.
#include <gtest/gtest.h>

#include "tests/support/LogRecorder.h"
#include "tests/support/ScriptedBus.h"
#include "tests/support/Seeds.h"
#include "transfer/NfcCommand.h"
#include "transfer/SpbTransfer.h"

using namespace testing_support;

namespace {

using hosted::kMillisecond;

constexpr std::uint8_t kUntouched = 0x77;
constexpr hosted::Micros kRefusedMs = 200;
constexpr hosted::Micros kGivenUpMs = 2000;  // what hosts are promised

// The lines behind those that tell what happened.
const std::string kUnread = " with 0 bytes read, E Nfc read spb status error, status = ";
const std::string kUnwritten = ", with 0 bytes written, E Nfc write spd error, status = ";
const std::string kFailed = "W NFC GetOverlappedResult error: ";
const std::string kRefused = "W NFC_WaitForSingleObject GetOverlapped error: 996, E NFC Error 996";
const std::string kEndless = "E NFC WaitForSingleObject return error: 258, E NFC Error 258";
const std::string kRead = "W Nfc read spb dataLength = 4, ";
const std::string kOpened = "W Peripheral opened with 0 bytes transfer";

const struct {
    char kind;  // Read, Write, Open
    Answer answer;
    bool result;
    hosted::Micros milliseconds;
    std::string lines;
} kTransfers[] = {
    {'R', Gives({0x1D, 0x00, 0xA5, 0x09}), true, 0, kRead + "W Nfc data: 1d00a509"},
    {'R', GivesAtOnce({0x1D, 0x00, 0xA5, 0x09}), true, 0, kRead + "W Nfc data: 1d00a509"},
    {'R', Gives({1, 2, 3}), false, 0,
     kRead + "E Nfc read spb command->NumBytes don't match, command->NumBytes=3"},
    {'R', Fails(31), false, 0, kFailed + "31, E NFC Error 31" + kUnread + "31"},
    {'R', Refuses(5), false, kRefusedMs, "E NFC_ReadFile Error 5\n, " + kRefused + kUnread + "996"},
    {'R', NeverEnds(), false, kGivenUpMs, kEndless + kUnread + "258"},
    {'W', Gives({}), true, 0, ""},
    {'W', Fails(31), false, 0, kFailed + "31, E NFC Error 31" + kUnwritten + "31"},
    {'W', Refuses(5), false, kRefusedMs,
     "E NFC_WriteFile Error  5\n, " + kRefused + kUnwritten + "996"},
    {'W', NeverEnds(), false, kGivenUpMs, kEndless + kUnwritten + "258"},
    {'O', Gives({}), true, 0, kOpened},
    {'O', GivesAtOnce({}), true, 0, kOpened},
    {'O', Fails(31), false, 0, kFailed + "31, E Open error 31"},
    {'O', Refuses(5), false, 0, kFailed + "5, E Open error 5"},
};

TEST(Transfer, EndsWithItsResultItsLinesAndADeviceThatWorksOn) {
    hosted::UseScheduledClock({Seed()});
    const auto bus = std::make_shared<ScriptedBus>();
    const ScriptedDevice device(bus);
    for (const auto& [kind, answer, result, milliseconds, lines] : kTransfers) {
        SCOPED_TRACE(kind + lines);
        LogRecorder log;
        (kind == 'R' ? bus->reads : kind == 'W' ? bus->writes : bus->controls) = {answer};
        std::uint8_t bytes[4] = {kUntouched, kUntouched, kUntouched, kUntouched};
        const hosted::Micros start = hosted::Now();
        SetLastError(ERROR_ACCESS_DENIED);  // left by somebody else; must not count
        COpenCommand open;
        EXPECT_EQ(kind == 'R'   ? NfcSpbRead(4, bytes)
                  : kind == 'W' ? NfcSpbWrite(bytes, 4)
                                : WaitForCommand(&open) == 0,
                  result);
        EXPECT_EQ(hosted::Now() - start, milliseconds * kMillisecond);
        EXPECT_EQ(Joined(log.TakeMarked()), lines);
        EXPECT_EQ(hosted::Live().requests, 0U);
        // Only a refused transfer leaves the event set; the next request resets it.
        EXPECT_EQ(WaitForSingleObject(HandleOf(g_ioEvent.value.Get()), 0),
                  milliseconds == kRefusedMs ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
        EXPECT_EQ(bytes[0], kind == 'R' && result ? answer.bytes[0] : kUntouched);
        bus->reads = {Gives({9, 8, 7, 6})};
        EXPECT_TRUE(NfcSpbRead(4, bytes));
        EXPECT_EQ(bytes[3], 6);
    }
}

TEST(Transfer, ThatCannotBeMadeAsksNoDriver) {
    hosted::UseScheduledClock({Seed()});
    LogRecorder log;
    std::uint8_t bytes[4] = {};
    EXPECT_FALSE(NfcSpbRead(4, bytes));  // no device
    EXPECT_FALSE(NfcSpbWrite(bytes, 4));
    const auto bus = std::make_shared<ScriptedBus>();
    const ScriptedDevice device(bus);
    EXPECT_FALSE(NfcSpbRead(0, bytes));
    EXPECT_FALSE(NfcSpbWrite(nullptr, 4));
    EXPECT_FALSE(CWriteCommand(3).WriteParse(bytes, 4));
    EXPECT_EQ(bus->transfers, 0U);
    EXPECT_EQ(WaitForCommand(nullptr), 22U);
    EXPECT_EQ(log.TakeUnannounced(), std::vector<std::string>(2, "NFC WriteParse checke error"));
}

}  // namespace
