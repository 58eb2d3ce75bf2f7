// The route to a keyboard over HID: finding and opening it, starting its read thread, asking it for
// the number. HidTransfer.cpp sends the frames, KeyboardReadThread.cpp takes the reports.
#include <memory>
#include <new>

#include "diagnostics/Log.h"
#include "platform/BoundedMemory.h"
#include "platform/NeverDestroyed.h"
#include "platform/platform.h"
#include "routes/EventErrors.h"
#include "routes/HidDiscovery.h"
#include "routes/KeyboardFrame.h"
#include "routes/KeyboardReadThread.h"
#include "routes/Keyboards.h"
#include "routes/NfcProxy.h"
#include "routes/Route.h"

namespace {

bool RequestNumber(std::uint16_t regAddr, std::uint8_t* number)
    TAGPORT_REQUIRES(ContentLock::m_mutex) {
    const std::unique_ptr<NumberRequest> request(new (std::nothrow) NumberRequest);
    if (request == nullptr) {
        LogErrorFun("NFC ReadRandNumber malloc writeData fail");
        return false;
    }
    FillNumberRequest(*request, regAddr);
    if (!NfcProxy::HidWrite(1, request->data(), static_cast<std::int32_t>(request->size()), 1)) {
        LogErrorFun("NFC HidRead write address fail");
        return false;
    }
    const EventSlot::Lease answered = g_RandEvent.value.Get();
    if (WaitForSingleObject(HandleOf(answered), kAnswerTimeoutMs) != WAIT_OBJECT_0) {
        LogErrorFun("NFC ReadRandNumber fail");
        return false;
    }
    const RandomNumber received = g_hidRandNumber.value.Get();
    if (!platform::CopyField<kNumberSize>(number, received.data())) {
        LogErrorFun("NFC ReadRandNumber memcpy_s fail");
        return false;
    }
    return true;
}

bool StartKeyboard() {
    if (!g_RandEvent.value.Create(true)) {
        LogNoHidNumberEvent(GetLastError());
        return false;
    }
    switch (KeyboardReadLife().EnsureStarted(ReadKeyboardDataThread)) {
        case ThreadLife::Start::kAlreadyExists:
            LogWarnFun("NFC_ g_hReadHidThread already exist");
            return true;
        case ThreadLife::Start::kStarted:
            LogWarnFun("NFC g_hReadHidThread Create pass");
            return true;
        case ThreadLife::Start::kFailed:
            break;
    }
    LogWarnFun("NFC g_hReadHidThread Create fail");
    return false;
}

class HidRoute final : public Route {
  public:
    bool IsActive() const override { return g_isHidDevice && g_mcuKbConnected; }
    bool WriteImage(const std::uint8_t* image, std::int32_t length) override
        TAGPORT_REQUIRES(ContentLock::m_mutex) {
        return NfcProxy::NfcHidWrite(image, length);
    }
    bool ReadNumber(std::uint16_t regAddr, std::uint8_t* number) override
        TAGPORT_REQUIRES(ContentLock::m_mutex) {
        return RequestNumber(regAddr, number);
    }

    UniqueHandle Open() override TAGPORT_REQUIRES(ContentLock::m_mutex) {
        UniqueHandle device = MatchNfcHidDevice();
        if (device) {
            LogWarnFun("NFC_ select hid device");
            g_isHidDevice = true;
            g_hidReportHead[kReportIdOffset] = kOutgoingReportId;
            g_frameHead[kFrameMarkOffset] = kFrameMark;
        }
        return device;
    }
    bool IsFound() const override { return g_isHidDevice; }
    bool ReopensOnStart() const override { return g_isHidDevice; }
    bool Start() override TAGPORT_REQUIRES(ContentLock::m_mutex) { return StartKeyboard(); }
    void UndoStart() override TAGPORT_REQUIRES(ContentLock::m_mutex) {
        if (g_hReadHidThread != nullptr) {
            // The closing of the device wakes the thread.
            KeyboardReadLife().Stop(ThreadLife::Wake::kNo);
            g_RandEvent.value.Signal();
        }
        g_RandEvent.value.Close();
    }
    void OnDeviceClosed() override TAGPORT_REQUIRES(ContentLock::m_mutex) {
        KeyboardReadLife().OnDeviceClosed();
    }

    void SetRunFlag() override { KeyboardReadLife().SetRunFlag(); }
    void StopLoop() override { KeyboardReadLife().Stop(ThreadLife::Wake::kYes); }
};

}  // namespace

Route& HidRouteInstance() {
    static platform::NeverDestroyed<HidRoute> route;
    return route.value;
}
