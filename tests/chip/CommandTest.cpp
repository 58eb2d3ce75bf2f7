// One transfer from its start to its end: results, lines, times, and what stays behind.
#include <gtest/gtest.h>

#include "chip/NfcCommand.h"
#include "chip/SpbTransfer.h"
#include "tests/support/ScriptedBus.h"
#include "tests/support/Seeds.h"

using namespace testing_support;

namespace {

using Texts = std::vector<std::string>;
using hosted::kMillisecond;

constexpr std::uint8_t kUntouched = 0x77;

const Texts kWritten = {};
const Texts kRead = {"W Nfc read spb dataLength = 4", "W Nfc data: 1d00a509"};
const Texts kShortRead = {"W Nfc read spb dataLength = 4",
                          "E Nfc read spb command->NumBytes don't match, command->NumBytes=3"};
const Texts kFailedRead = {"W NFC GetOverlappedResult error: 31",
                           "E NFC Error 31 with 0 bytes read",
                           "E Nfc read spb status error, status = 31"};
const Texts kRefusedRead = {
    "E NFC_ReadFile Error 5\n", "W NFC_WaitForSingleObject GetOverlapped error: 996",
    "E NFC Error 996 with 0 bytes read", "E Nfc read spb status error, status = 996"};
const Texts kEndlessRead = {"E NFC WaitForSingleObject return error: 258",
                            "E NFC Error 258 with 0 bytes read",
                            "E Nfc read spb status error, status = 258"};
const Texts kFailedWrite = {"W NFC GetOverlappedResult error: 31",
                            "E NFC Error 31, with 0 bytes written",
                            "E Nfc write spd error, status = 31"};
const Texts kRefusedWrite = {
    "E NFC_WriteFile Error  5\n", "W NFC_WaitForSingleObject GetOverlapped error: 996",
    "E NFC Error 996, with 0 bytes written", "E Nfc write spd error, status = 996"};
const Texts kEndlessWrite = {"E NFC WaitForSingleObject return error: 258",
                             "E NFC Error 258, with 0 bytes written",
                             "E Nfc write spd error, status = 258"};

struct TransferCase {
    bool isRead;
    Answer answer;
    bool result;
    hosted::Micros milliseconds;
    Texts lines;
};

const TransferCase kTransfers[] = {
    {true, Gives({0x1D, 0x00, 0xA5, 0x09}), true, 0, kRead},
    {true, GivesAtOnce({0x1D, 0x00, 0xA5, 0x09}), true, 0, kRead},
    {true, Gives({1, 2, 3}), false, 0, kShortRead},
    {true, Fails(31), false, 0, kFailedRead},
    {true, Refuses(5), false, 200, kRefusedRead},
    {true, NeverEnds(), false, kTransferTimeoutMs, kEndlessRead},
    {false, Gives({}), true, 0, kWritten},
    {false, Fails(31), false, 0, kFailedWrite},
    {false, Refuses(5), false, 200, kRefusedWrite},
    {false, NeverEnds(), false, kTransferTimeoutMs, kEndlessWrite},
};

TEST(Transfer, EndsWithItsResultItsLinesAndADeviceThatWorksOn) {
    hosted::UseScheduledClock({Seed()});
    const auto bus = std::make_shared<ScriptedBus>();
    const OpenDevice device(bus);
    for (const TransferCase& transfer : kTransfers) {
        SCOPED_TRACE(testing::PrintToString(transfer.lines));
        LogRecorder log;
        log.Announce("N");  // the lines are compared as a whole
        (transfer.isRead ? bus->reads : bus->writes) = {transfer.answer};
        std::uint8_t bytes[4] = {kUntouched, kUntouched, kUntouched, kUntouched};
        const hosted::Micros start = hosted::Now();
        SetLastError(ERROR_ACCESS_DENIED);  // left by somebody else; must not count
        EXPECT_EQ(transfer.isRead ? NfcSpbRead(4, bytes) : NfcSpbWrite(bytes, 4), transfer.result);
        EXPECT_EQ(hosted::Now() - start, transfer.milliseconds * kMillisecond);
        EXPECT_EQ(MarkedLines(log), transfer.lines);
        EXPECT_EQ(hosted::Live().requests, 0U);
        // Only a refused transfer leaves the event set; the next request resets it.
        EXPECT_EQ(WaitForSingleObject(HandleOf(g_ioEvent.value.Get()), 0),
                  transfer.milliseconds == 200 ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
        const bool filled = transfer.isRead && transfer.result;
        EXPECT_EQ(bytes[0], filled ? transfer.answer.bytes[0] : kUntouched);

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
    const OpenDevice device(bus);
    EXPECT_FALSE(NfcSpbRead(0, bytes));
    EXPECT_EQ(log.Texts(), Texts{});
    EXPECT_FALSE(NfcSpbWrite(nullptr, 4));
    EXPECT_EQ(log.TakeUnannounced(), Texts{"NFC WriteParse checke error"});
    EXPECT_EQ(bus->transfers, 0U);
    EXPECT_EQ(WaitForCommand(nullptr), 22U);

    bus->reads = {Gives({1, 2, 3, 4})};
    EXPECT_FALSE(NfcSpbRead(4, nullptr));
    EXPECT_EQ(log.TakeUnannounced(), Texts{"Nfc read spb memcpy_s fail"});
}

TEST(WriteCommand, TakesExactlyItsLength) {
    hosted::UseScheduledClock({Seed()});
    LogRecorder log;
    const std::uint8_t bytes[4] = {1, 2, 3, 4};
    CWriteCommand three(3);
    EXPECT_FALSE(three.WriteParse(bytes, 4));
    EXPECT_EQ(three.buffer(), nullptr);
    EXPECT_FALSE(three.WriteParse(nullptr, 3));
    EXPECT_EQ(log.TakeUnannounced(), Texts(2, "NFC WriteParse checke error"));
    EXPECT_TRUE(three.WriteParse(bytes, 3));
    EXPECT_EQ(three.buffer()[2], 3);
    CWriteCommand empty(0);
    EXPECT_TRUE(empty.WriteParse(bytes, 0));
    EXPECT_NE(empty.buffer(), nullptr);
}

TEST(OpenCommand, TakesTheSameWayWhetherItPendsOrNot) {
    hosted::UseScheduledClock({Seed()});
    const auto bus = std::make_shared<ScriptedBus>();
    const OpenDevice device(bus);
    const struct {
        Answer answer;
        std::uint32_t status;
        Texts lines;
    } cases[] = {
        {Gives({}), 0, {"W Peripheral opened with 0 bytes transfer"}},
        {GivesAtOnce({}), 0, {"W Peripheral opened with 0 bytes transfer"}},
        {Fails(31), 31, {"W NFC GetOverlappedResult error: 31", "E Open error 31"}},
        {Refuses(5), 5, {"W NFC GetOverlappedResult error: 5", "E Open error 5"}},
    };
    for (const auto& open : cases) {
        LogRecorder log;
        log.Announce("Open error");
        bus->controls = {open.answer};
        COpenCommand command;
        const hosted::Micros start = hosted::Now();
        SetLastError(ERROR_ACCESS_DENIED);
        EXPECT_EQ(WaitForCommand(&command), open.status);
        EXPECT_EQ(hosted::Now(), start);
        EXPECT_EQ(MarkedLines(log), open.lines);
    }
}

}  // namespace
