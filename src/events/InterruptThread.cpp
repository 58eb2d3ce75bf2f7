// The interrupt thread: keeps one ioctl pending at the kernel driver; each completion is a chip
// interrupt, which becomes a first report, a count, or a decoded status.
#include <array>
#include <new>

#include "chip/LittleEndian.h"
#include "chip/NfcDeviceContext.h"
#include "diagnostics/Log.h"
#include "events/DriverThreads.h"
#include "events/EventState.h"
#include "events/Listener.h"
#include "events/RequestLoop.h"
#include "events/Visit.h"
#include "platform/platform.h"

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

void DeliverMcuStarted() {
    static Deliverer deliverer;
    deliverer.Deliver(kEventMcuStarted, g_tagRandNumber.value.Get(), kRouteI2c);
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
    if (!context.Traits().reportsStatus) {
        return StatusRead::kNoStatus;  // a device start came first and found another chip
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

void EnterField(int enterSum, int leaveSum, int ticks) {
    LogWarnFun("NFC EnterField(%d), enterSum: %d, leaveSum: %d, ticks: %d", kEnterField, enterSum,
               leaveSum, ticks);
    if (!Visit::Get().Enter()) {
        LogErrorFun("NFC EnterField(%d), interrupt First?: %d", kEnterField, 0);
    }
}

void LeaveField(int enterSum, int leaveSum, int ticks) {
    LogWarnFun("NFC LeaveField(%d), enterSum: %d, leaveSum: %d, ticks: %d", kLeaveField, enterSum,
               leaveSum, ticks);
    if (!Visit::Get().Leave()) {
        LogErrorFun("NFC LeaveField(%d), interrupt First?: %d", kLeaveField, 1);
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
            Visit::Get().CountInterrupt();
            return;
    }
    const int intStatus = status[0];
    const std::uint32_t para1 = LittleEndian<4>(status.data() + kPara1Offset);
    const int ticks = static_cast<int>(LittleEndian<4>(status.data() + kTicksOffset));
    if (!GetNfcDeviceContext().Traits().reportsVisits) {
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

class InterruptRequest final : public EventRequest {
  public:
    bool MayEndAtOnce() const override { return false; }
    BOOL Send(HANDLE device, OVERLAPPED& overlapped) override {
        return DeviceIoControl(device, kInterruptControlCode, nullptr, 0, nullptr, 0, nullptr,
                               &overlapped);
    }
    void Handle() override {
        if (GetNfcDeviceContext().Traits().reportsStatus) {
            ProcessInterruptStatus();
        } else {
            Visit::Get().CountInterrupt();
        }
    }
    void LogNoEvent(DWORD error) override {
        LogErrorFun("NFC error creating overlapped event for int thread - %u",
                    static_cast<unsigned>(error));
    }
    void LogNotSent(DWORD error) override {
        LogWarnFun("NFC DeviceIoControl Failed: %u", static_cast<unsigned>(error));
    }
    void LogWaiting() override { LogWarnFun("NFC Wait For Kernel Interrupt..."); }
    void LogWaitFailed(DWORD error) override {
        LogWarnFun("NFC WaitForSingleObject Failed: %u", static_cast<unsigned>(error));
    }
    void LogReturn() override { LogErrorFun("NFC WaitOnInterruptLoop return"); }
};

}  // namespace

DWORD WINAPI InterruptThread(LPVOID /*argument*/) {
    InterruptRequest request;
    return RunRequestLoop(InterruptLife(), request);
}
