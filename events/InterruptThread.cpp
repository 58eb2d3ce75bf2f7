// The interrupt thread: keeps one ioctl pending at the kernel driver; each completion is a chip
// interrupt, which becomes a first report, a count, or a decoded status.
#include <array>
#include <new>

#include "chip/LittleEndian.h"
#include "chip/NfcDeviceContext.h"
#include "diagnostics/Log.h"
#include "events/DeferCall.h"
#include "events/EventState.h"
#include "events/EventThread.h"
#include "events/Listener.h"
#include "platform/platform.h"
#include "transfer/PendingRequest.h"
#include "transfer/TransferState.h"

namespace {

// Device type 0x400, function 0x708, buffered, any access. Completes when the chip interrupts.
constexpr DWORD kInterruptControlCode = 0x04001C20;

// The interrupt status of an spb4 chip: intStatus (1 byte), para1 (4), ticks (4), little-endian.
constexpr std::uint16_t kInterruptStatusState = 0;
constexpr std::size_t kInterruptStatusSize = 9;
constexpr std::size_t kPara1Offset = 1;
constexpr std::size_t kTicksOffset = 5;
using StatusBytes = std::array<std::uint8_t, kInterruptStatusSize>;

constexpr int kEnterField = 1;
constexpr int kLeaveField = 2;
constexpr int kMcuStart = 3;
constexpr int kMcuReset = 4;
constexpr int kMcuNoData = 255;

// A chip whose status cannot be read keeps its interrupt up, and without a pause the loop would
// spin.
constexpr DWORD kFailedReadPauseMs = 100;

ShownNumber g_shownOnInterrupt;

// Opens a visit. Without a listener nothing changes, so the next interrupt tries again.
void MakeFirstReport() {
    FirstReport report;
    if (!report.allowed()) {
        return;  // a stop came first
    }
    LogWarnFun("NFC_SELECT_IN_FIELD 1st report");
    if (g_isI2cDriver || g_isUsbDriver) {
        const int route = g_isI2cDriver ? kRouteI2c : kRouteUsb;
        if (!DeliverEvent(kEventEntered, g_tagRandNumber.value, route, g_shownOnInterrupt)) {
            return;
        }
    } else if (staticCallback == nullptr) {
        LogErrorFun("NFC staticCallback is null");
        return;
    } else {
        LogWarnFun("unknown NFC device in field");
    }
    g_fieldCount = kFieldVisitOpened;
    g_interruptFirst = false;
    report.HandOver();
}

void DeliverMcuStarted() {
    DeliverEvent(kEventMcuStarted, g_tagRandNumber.value, kRouteI2c, g_shownOnInterrupt);
}

enum class StatusRead { kDone, kFailed, kNoStatus };

StatusRead ReadInterruptStatus(StatusBytes& status) {
    NfcDeviceContext& context = GetNfcDeviceContext();
    platform::Lock lock(context.mutex);
    NfcSpbCommon* const driver = context.spbDriverOps;
    if (driver == nullptr) {
        LogErrorFun("spbDriverOps == nullptr");
        return StatusRead::kFailed;
    }
    if (context.linkType != NfcLinkSpb4) {
        return StatusRead::kNoStatus;  // a device start was waited out, and it found another chip
    }
    try {
        return driver->ReadState(kInterruptStatusState, static_cast<std::int32_t>(status.size()),
                                 status.data())
                   ? StatusRead::kDone
                   : StatusRead::kFailed;
    } catch (const std::bad_alloc&) {
        // Nobody is there to catch it on this thread, and one status can be missed.
        return StatusRead::kFailed;
    }
}

// All that an interrupt without a status tells: a phone is there.
void CountInterrupt() {
    if (g_interruptFirst) {
        MakeFirstReport();
    } else {
        ++g_fieldCount;
        LogWarnFun("NFC_SELECT_IN_FIELD no report");
    }
}

void EnterField(int enterSum, int leaveSum, int ticks) {
    LogWarnFun("NFC EnterField(%d), enterSum: %d, leaveSum: %d, ticks: %d", kEnterField, enterSum,
               leaveSum, ticks);
    if (g_interruptFirst) {
        MakeFirstReport();
    } else {
        LogErrorFun("NFC EnterField(%d), interrupt First?: %d", kEnterField, 0);
    }
}

void LeaveField(int enterSum, int leaveSum, int ticks) {
    LogWarnFun("NFC LeaveField(%d), enterSum: %d, leaveSum: %d, ticks: %d", kLeaveField, enterSum,
               leaveSum, ticks);
    if (g_interruptFirst) {
        LogErrorFun("NFC LeaveField(%d), interrupt First?: %d", kLeaveField, 1);
    } else {
        g_fieldCount = kFieldLeaveReported;
    }
}

void ProcessInterruptStatus() {
    StatusBytes status{};
    switch (ReadInterruptStatus(status)) {
        case StatusRead::kDone:
            break;
        case StatusRead::kFailed:
            LogErrorFun("Nfc read Interrupt Status failed!");
            Sleep(kFailedReadPauseMs);
            return;
        case StatusRead::kNoStatus:
            CountInterrupt();
            return;
    }
    const int intStatus = status[0];
    const std::uint32_t para1 = LittleEndian<4>(status.data() + kPara1Offset);
    const int ticks = static_cast<int>(LittleEndian<4>(status.data() + kTicksOffset));
    if (GetNfcDeviceContext().chipKind == NfcChipLikeFanli) {
        LogErrorFun("Nfc like Fanli intStatus: %d para1: 0x%04x, ticks: %d", intStatus, para1,
                    ticks);
        DeliverMcuStarted();
        return;
    }
    const int enterSum = static_cast<int>(para1 >> 16);
    const int leaveSum = static_cast<int>(para1 & 0xFFFF);
    switch (intStatus) {
        case kEnterField:
            EnterField(enterSum, leaveSum, ticks);
            break;
        case kLeaveField:
            LeaveField(enterSum, leaveSum, ticks);
            break;
        case kMcuStart:
            LogErrorFun("Nfc MCU start! para1: 0x%04x, ticks: %d", para1, ticks);
            DeliverMcuStarted();
            break;
        case kMcuReset:
            LogErrorFun("Nfc MCU reset! para1: 0x%04x, ticks: %d", para1, ticks);
            break;
        case kMcuNoData:
            LogErrorFun("Nfc MCU no data! para1: 0x%04x, ticks: %d", para1, ticks);
            break;
        default:
            LogErrorFun("Nfc MCU unknown Event: %d, para1: 0x%04x, ticks: %d", intStatus, para1,
                        ticks);
            break;
    }
}

void HandleInterrupt() {
    if (g_isI2cDriver && GetNfcDeviceContext().linkType == NfcLinkSpb4) {
        ProcessInterruptStatus();
    } else {
        CountInterrupt();
    }
}

// One request from its start to its end. False when the loop is to be left.
bool WaitForOneInterrupt(const EventThread::Ticket& ticket, OVERLAPPED& overlapped) {
    PendingRequest request(overlapped);
    const bool pending = request.Start(false, [&](HANDLE device) {
        return DeviceIoControl(device, kInterruptControlCode, nullptr, 0, nullptr, 0, nullptr,
                               &overlapped);
    });
    if (!pending) {
        LogWarnFun("NFC DeviceIoControl Failed: %u", static_cast<unsigned>(request.StartError()));
        return false;
    }
    LogWarnFun("NFC Wait For Kernel Interrupt...");
    // Starting the request has reset the event, and with it a stop that was signalled since the
    // run flag was looked at. Such a stop goes the same way as one that comes during the wait.
    if (g_interruptThread.Serving(ticket) &&
        WaitForSingleObject(overlapped.hEvent, INFINITE) != WAIT_OBJECT_0) {
        LogWarnFun("NFC WaitForSingleObject Failed: %u", static_cast<unsigned>(GetLastError()));
        return true;
    }
    if (!request.Succeeded()) {
        LogErrorFun("NFC Interrupt get Overlapped result %u",
                    static_cast<unsigned>(GetLastError()));
        return false;
    }
    HandleInterrupt();
    return true;
}

void WaitOnInterruptLoop(EventThread::Ticket& ticket, OVERLAPPED& overlapped) {
    while (g_interruptThread.Serving(ticket)) {
        g_interruptThread.BeginPass(ticket);
        if (!WaitForOneInterrupt(ticket, overlapped)) {
            return;
        }
    }
}

}  // namespace

DWORD WINAPI InterruptThread(LPVOID /*argument*/) {
    EventThread::Ticket ticket = g_interruptThread.Enter();
    for (;;) {
        OVERLAPPED overlapped{};
        if (!g_interruptThread.Arm(ticket, overlapped)) {
            LogErrorFun("NFC error creating overlapped event for int thread - %u",
                        static_cast<unsigned>(GetLastError()));
            return kThreadFailed;
        }
        WaitOnInterruptLoop(ticket, overlapped);
        LogErrorFun("NFC WaitOnInterruptLoop return");
        if (g_interruptThread.TryEnd(ticket)) {
            return 0;
        }
    }
}
