// The interrupt thread: keeps one ioctl pending at the kernel driver; each completion is a chip
// interrupt, which becomes a first report, a count, or the event that its status reports.
#include <new>

#include "chip/NfcDeviceContext.h"
#include "diagnostics/Log.h"
#include "events/DriverKind.h"
#include "events/DriverThreads.h"
#include "events/Listener.h"
#include "events/NumberStore.h"
#include "events/RequestLoop.h"
#include "events/Visit.h"
#include "platform/platform.h"

namespace {

// Device type 0x400, function 0x708, buffered, any access. Completes when the chip interrupts.
constexpr DWORD kInterruptControlCode = 0x04001C20;

// A chip whose status cannot be read keeps its interrupt up, and without a pause the loop would
// spin.
constexpr DWORD kFailedReadPauseMs = 100;

void DeliverMcuStarted() {
    static Deliverer deliverer;
    deliverer.Deliver(kEventMcuStarted, g_tagRandNumber.value.Get(), kRouteI2c);
}

enum class StatusRead { kDone, kFailed, kNoStatus };

// `traits` are those of the chip that the status comes from: another device start may follow.
StatusRead ReadInterruptStatus(InterruptStatus& status, ChipTraits& traits) {
    NfcDeviceContext& context = GetNfcDeviceContext();
    platform::Lock lock(context.mutex);
    NfcSpbCommon* const driver = context.spbDriverOps;
    if (driver == nullptr) {
        LogErrorFun("spbDriverOps == nullptr");
        return StatusRead::kFailed;
    }
    traits = context.Traits();
    if (!traits.reportsStatus) {
        return StatusRead::kNoStatus;  // a device start came first and found another chip
    }
    try {
        return driver->ReadInterruptStatus(status) ? StatusRead::kDone : StatusRead::kFailed;
    } catch (const std::bad_alloc&) {
        // Nobody is there to catch it on this thread, and one status can be missed.
        return StatusRead::kFailed;
    }
}

void EnterField(const InterruptStatus& status) {
    LogWarnFun("NFC EnterField(%d), enterSum: %d, leaveSum: %d, ticks: %d", status.code,
               status.enterSum, status.leaveSum, status.ticks);
    if (!Visit::Get().Enter()) {
        LogErrorFun("NFC EnterField(%d), interrupt First?: %d", status.code, 0);
    }
}

void LeaveField(const InterruptStatus& status) {
    LogWarnFun("NFC LeaveField(%d), enterSum: %d, leaveSum: %d, ticks: %d", status.code,
               status.enterSum, status.leaveSum, status.ticks);
    if (!Visit::Get().Leave()) {
        LogErrorFun("NFC LeaveField(%d), interrupt First?: %d", status.code, 1);
    }
}

void HandleStatus(const InterruptStatus& status, const ChipTraits& traits) {
    using Event = InterruptStatus::Event;
    if (!traits.reportsVisits) {
        LogErrorFun("Nfc like Fanli intStatus: %d para1: 0x%04x, ticks: %d", status.code,
                    status.para1, status.ticks);
        DeliverMcuStarted();
        return;
    }
    switch (status.event) {
        case Event::kEnterField:
            EnterField(status);
            break;
        case Event::kLeaveField:
            LeaveField(status);
            break;
        case Event::kMcuStart:
            LogErrorFun("Nfc MCU start! para1: 0x%04x, ticks: %d", status.para1, status.ticks);
            DeliverMcuStarted();
            break;
        case Event::kMcuReset:
            LogErrorFun("Nfc MCU reset! para1: 0x%04x, ticks: %d", status.para1, status.ticks);
            break;
        case Event::kNoData:
            LogErrorFun("Nfc MCU no data! para1: 0x%04x, ticks: %d", status.para1, status.ticks);
            break;
        case Event::kUnknown:
            LogErrorFun("Nfc MCU unknown Event: %d, para1: 0x%04x, ticks: %d", status.code,
                        status.para1, status.ticks);
            break;
    }
}

void ProcessInterruptStatus() {
    InterruptStatus status;
    ChipTraits traits;
    switch (ReadInterruptStatus(status, traits)) {
        case StatusRead::kDone:
            HandleStatus(status, traits);
            break;
        case StatusRead::kFailed:
            LogErrorFun("Nfc read Interrupt Status failed!");
            Sleep(kFailedReadPauseMs);
            break;
        case StatusRead::kNoStatus:
            Visit::Get().CountInterrupt();
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
