// One transfer from its start to its end: results, lines, times, and what stays behind.
#include <gtest/gtest.h>

#include "tests/support/LogRecorder.h"
#include "tests/support/ScriptedBus.h"
#include "tests/support/Threads.h"
#include "transfer/NfcCommand.h"
#include "transfer/PendingRequest.h"
#include "transfer/SpbTransfer.h"
#include "transfer/WaitForCommand.h"

using namespace testing_support;
using emulation::kMillisecond;

namespace {

constexpr std::uint8_t kUntouched = 0x77;
constexpr emulation::Micros kRefusedMs = 200;
constexpr emulation::Micros kGivenUpMs = 2000;  // what hosts are promised

// The lines behind those that tell what happened.
const std::string kUnread = " with 0 bytes read, E Nfc read spb status error, status = ";
const std::string kUnwritten = ", with 0 bytes written, E Nfc write spd error, status = ";
const std::string kFailed = "W NFC GetOverlappedResult error: ";
const std::string kRefused = "W NFC_WaitForSingleObject GetOverlapped error: 996, E NFC Error 996";
const std::string kEndless = "E NFC WaitForSingleObject return error: 258, E NFC Error 258";
const std::string kRead = "W Nfc read spb dataLength = 4, ";

using Transfer = bool (*)(std::uint8_t (&bytes)[4]);
const Transfer kReading = [](auto& bytes) { return NfcSpbRead(4, bytes); };
const Transfer kWriting = [](auto& bytes) { return NfcSpbWrite(bytes, 4); };
const Transfer kOpening = [](auto& /*bytes*/) {
    COpenCommand open;
    return WaitForCommand(&open) == 0;
};

const struct {
    Transfer transfer;
    std::string fault;  // none: it works
    emulation::Micros milliseconds;
    std::string lines;
} kTransfers[] = {
    {kReading, "", 0, kRead + "W Nfc data: 1d00a509"},
    {kReading, "short:1", 0,
     kRead + "E Nfc read spb command->NumBytes don't match, command->NumBytes=3"},
    {kReading, "fail:31", 0, kFailed + "31, E NFC Error 31" + kUnread + "31"},
    {kReading, "refuse:5", kRefusedMs, "E NFC_ReadFile Error 5\n, " + kRefused + kUnread + "996"},
    {kReading, "never", kGivenUpMs, kEndless + kUnread + "258"},
    {kWriting, "", 0, ""},
    {kWriting, "fail:31", 0, kFailed + "31, E NFC Error 31" + kUnwritten + "31"},
    {kWriting, "refuse:5", kRefusedMs,
     "E NFC_WriteFile Error  5\n, " + kRefused + kUnwritten + "996"},
    {kWriting, "never", kGivenUpMs, kEndless + kUnwritten + "258"},
    {kOpening, "", 0, "W Peripheral opened with 0 bytes transfer"},
    {kOpening, "fail:31", 0, kFailed + "31, E Open error 31"},
    {kOpening, "refuse:5", 0, kFailed + "5, E Open error 5"},
};

void TryTransfers(bool endAtOnce) {
    const ScriptedDevice device;
    device.bus->endsAtOnce = endAtOnce;
    for (const auto& [transfer, fault, milliseconds, lines] : kTransfers) {
        SCOPED_TRACE(fault + ": " + lines);
        LogRecorder log;
        device.bus->reads = {{0x1D, 0x00, 0xA5, 0x09}};
        device.SetFaults(fault.empty() ? "" : "any#1=" + fault);
        std::uint8_t bytes[4] = {kUntouched, kUntouched, kUntouched, kUntouched};
        const emulation::Micros start = emulation::Now();
        SetLastError(ERROR_ACCESS_DENIED);  // left by somebody else; must not count
        EXPECT_EQ(transfer(bytes), fault.empty());
        EXPECT_EQ((emulation::Now() - start) / kMillisecond, milliseconds);
        EXPECT_EQ(Joined(log.TakeMarked()), lines);
        EXPECT_EQ(emulation::Live().requests, 0U);
        // Only a refused transfer leaves the event set; the next request resets it.
        EXPECT_EQ(WaitForSingleObject(HandleOf(g_ioEvent.value.Get()), 0),
                  milliseconds == kRefusedMs ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
        EXPECT_EQ(bytes[0], transfer == kReading && fault.empty() ? 0x1D : kUntouched);
        device.bus->reads = {{9, 8, 7, 6}};
        EXPECT_TRUE(NfcSpbRead(4, bytes));
        EXPECT_EQ(bytes[3], 6);
    }
}

TEST(Transfer, EndsWithItsResultItsLinesAndADeviceThatWorksOn) {
    for (const bool endAtOnce : {false, true}) {
        ForEachSeed(1, [endAtOnce] { TryTransfers(endAtOnce); });
    }
}

// Neither a cancellation that is refused, nor a look that fails, nor a spurious wake-up may leave a
// request on a record and a buffer that are used again.
TEST(Transfer, IsCancelledUntilItHasEnded) {
    const struct {
        DWORD look;
        bool isWokenEarly;
    } cases[] = {{ERROR_SUCCESS, false}, {ERROR_IO_DEVICE, false}, {ERROR_SUCCESS, true}};
    for (const auto& [look, isWokenEarly] : cases) {
        SCOPED_TRACE(look);
        const OneSeed clock;
        const ScriptedDevice device;
        LogRecorder log;
        device.SetFaults("any#1+=never");
        unsigned cancellations = 0;
        emulation::SetCallHook(
            [&, look = look](emulation::Call call, emulation::ThreadId) -> DWORD {
                return call == emulation::Call::kCancelIoEx
                           ? (++cancellations % 5 ? ERROR_NOT_FOUND : 0)
                       : call == emulation::Call::kGetOverlappedResult ? look
                                                                       : 0;
            });
        if (isWokenEarly) {
            CloseHandle(StartThread([] {
                Sleep(1000);
                SetEvent(HandleOf(g_ioEvent.value.Get()));
            }));
        }
        std::uint8_t bytes[4] = {};
        const emulation::Micros start = emulation::Now();
        EXPECT_FALSE(NfcSpbRead(4, bytes));
        EXPECT_EQ((emulation::Now() - start) / kMillisecond, isWokenEarly ? 1003 : 2200);
        EXPECT_EQ(emulation::Live().requests, 0U) << "of a transfer";
        OVERLAPPED record{};
        {
            PendingRequest request(record);
            request.Begin(
                true, [] { return true; },
                [&](HANDLE handle) { return ReadFile(handle, bytes, 4, nullptr, &record); }, [] {});
            EXPECT_EQ(request.Look(), look == ERROR_SUCCESS ? PendingRequest::Result::kPending
                                                            : PendingRequest::Result::kFailed);
        }
        EXPECT_EQ(emulation::Live().requests, 0U) << "of an event loop";
        EXPECT_EQ(cancellations, 10U);
        emulation::SetCallHook({});
        log.TakeUnannounced();
    }
}

TEST(Transfer, CountsTheBytesOfARequestThatEndsInSpiteOfItsCancellation) {
    const OneSeed clock;
    const ScriptedDevice device;
    LogRecorder log;
    device.SetFaults("any#1=late:2100");
    device.bus->reads = {{1, 2, 3, 4}};
    emulation::SetCallHook([](emulation::Call call, emulation::ThreadId) -> DWORD {
        return call == emulation::Call::kCancelIoEx ? ERROR_NOT_FOUND : 0;
    });
    std::uint8_t bytes[4] = {};
    EXPECT_FALSE(NfcSpbRead(4, bytes));
    emulation::SetCallHook({});
    EXPECT_EQ(log.TakeUnannounced().at(1), "NFC Error 258 with 4 bytes read");
}

TEST(Transfer, ThatCannotBeMadeAsksNoDriver) {
    const OneSeed clock;
    LogRecorder log;
    std::uint8_t bytes[4] = {};
    EXPECT_FALSE(NfcSpbRead(4, bytes));  // no device
    EXPECT_FALSE(NfcSpbWrite(bytes, 4));
    EXPECT_FALSE(COpenCommand().Execute() || CReadCommand(4).Execute() ||
                 CWriteCommand(4).Execute());
    const ScriptedDevice device;
    EXPECT_FALSE(NfcSpbRead(0, bytes));
    EXPECT_FALSE(NfcSpbWrite(nullptr, 4));
    EXPECT_FALSE(CWriteCommand(3).WriteParse(bytes, 4));
    EXPECT_EQ(device.bus->transfers, 0U);
    EXPECT_EQ(WaitForCommand(nullptr), 22U);
    EXPECT_EQ(log.TakeUnannounced(), Texts(2, "NFC WriteParse checke error"));
}

// Otherwise its failure would end an event thread that the start of this device has kept.
TEST(OpenDevice, IsTakenOverAfterARequestThatHasFoundNone) {
    const OneSeed clock;
    bool asks = false;
    bool isOpen = false;
    const UniqueHandle thread(StartThread([&] {
        OpenDevice::Get().Use([&](HANDLE /*device*/) {
            asks = true;
            isOpen = emulation::WaitFor([] { return DeviceHandle != nullptr; }, kMillisecond, "it");
        });
    }));
    EXPECT_TRUE(emulation::WaitFor([&] { return asks; }, kMillisecond, "the request"));
    const ScriptedDevice device;
    EXPECT_EQ(WaitForSingleObject(thread.get(), INFINITE), WAIT_OBJECT_0);
    EXPECT_FALSE(isOpen);
}

}  // namespace
