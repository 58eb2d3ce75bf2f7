// The keyboard read thread: takes 64-byte reports from the keyboard's microcontroller, delivers
// field events and stores the number. Both ends of a visit come from the keyboard, so nothing is
// kept between two reports.
#include <array>

#include "diagnostics/Log.h"
#include "events/Listener.h"
#include "events/RequestLoop.h"
#include "platform/NeverDestroyed.h"
#include "platform/platform.h"
#include "routes/KeyboardFrame.h"
#include "routes/KeyboardReadThread.h"
#include "routes/Keyboards.h"

namespace {

using Report = std::array<std::uint8_t, kReportSize>;

void HandleFieldReport(KeyboardReport kind) {
    static Deliverer deliverer;
    LogWarnFun("NFC Interrupt arrive");
    switch (kind) {
        case KeyboardReport::kEntered:
            LogWarnFun("NFC_SELECT_IN_FIELD 1st report");
            deliverer.Deliver(kEventEntered, g_hidRandNumber.value.Get(), kRouteHid);
            break;
        case KeyboardReport::kLeft:
            deliverer.Deliver(kEventLeft, g_hidRandNumber.value.Get(), kRouteHid);
            LogLeaveDelivered(g_hidRandNumber.value.Get());
            break;
        default:
            LogWarnFun("not valid mcu data");
            break;
    }
}

void HandleReport(const Report& report) {
    const std::uint8_t* const fromType = report.data() + kHidTypeOffset;
    const KeyboardReport kind = ClassifyReport(fromType);
    switch (kind) {
        case KeyboardReport::kNumber: {
            g_hidRandNumber.value.Set(fromType + kAfterType);
            // Set and reset at once: only a reader that waits already is meant.
            const EventSlot::Lease answered = g_RandEvent.value.Get();
            SetEvent(HandleOf(answered));
            ResetEvent(HandleOf(answered));
            break;
        }
        case KeyboardReport::kUnknownType:
            LogWarnFun("NFC not valid data");
            break;
        default:
            HandleFieldReport(kind);
            break;
    }
}

class ReportRequest final : public EventRequest {
  public:
    bool MayEndAtOnce() const override { return true; }
    BOOL Send(HANDLE device, OVERLAPPED& overlapped) override {
        return ReadFile(device, m_report.data(), kReportSize, nullptr, &overlapped);
    }
    void Handle() override { HandleReport(m_report); }
    void LogNoEvent(DWORD error) override {
        LogErrorFun("NFC error creating overlapped event for ReadKeyboardDataThread - %u",
                    static_cast<unsigned>(error));
    }
    void LogNotSent(DWORD error) override {
        LogErrorFun("NFC ReadKeyboardData ReadFile error 0x%x", static_cast<unsigned>(error));
    }
    void LogWaiting() override { LogWarnFun("NFC Wait For KeyboardData"); }
    void LogWaitFailed(DWORD /*error*/) override {}  // no line belongs to it
    void LogReturn() override { LogErrorFun("NFC ReadKeyboardDataThread return"); }

  private:
    Report m_report{};
};

}  // namespace

std::atomic<bool> g_readHidRunning{true};
std::atomic<HANDLE> g_hReadHidThread{nullptr};
std::atomic<HANDLE> g_readHidEvent{nullptr};
OVERLAPPED g_readHidOverlapped{};

ThreadLife& KeyboardReadLife() {
    static platform::NeverDestroyed<ThreadLife> life{ThreadLife::Published{
        g_hReadHidThread, g_readHidRunning, &g_readHidEvent, &g_readHidOverlapped}};
    return life.value;
}

DWORD WINAPI ReadKeyboardDataThread(LPVOID /*argument*/) {
    ReportRequest request;
    return RunRequestLoop(KeyboardReadLife(), request);
}
