// Device start: which route there is, opening it, preparing the chip, and undoing it all when a
// step fails.
#include <cstdint>
#include <memory>
#include <new>

#include "chip/DetectChip.h"
#include "chip/NfcDeviceContext.h"
#include "chip/NfcSpbExtend.h"
#include "chip/NfcSpbNormal.h"
#include "diagnostics/Log.h"
#include "events/EventState.h"
#include "events/EventThread.h"
#include "platform/platform.h"
#include "routes/HidDiscovery.h"
#include "routes/KeyboardFrame.h"
#include "routes/NfcProxy.h"
#include "routes/RouteState.h"
#include "transfer/NfcCommand.h"
#include "transfer/OpenPeripheral.h"
#include "transfer/TransferState.h"

namespace {

constexpr WCHAR kI2cDriverPath[] = L"\\\\.\\SPBNFCDRIVER";
constexpr WCHAR kUsbDriverPath[] = L"\\\\.\\KEYBOARDNFC";
constexpr DWORD kShareNone = 0;

constexpr std::uint32_t kI2cOpDelayMs = 40;
constexpr std::uint32_t kUsbOpDelayMs = 10;

constexpr int kPreparationTries = 5;
constexpr DWORD kPreparationPauseMs = 500;

bool IsDriverRoute() {
    return g_isI2cDriver || g_isUsbDriver;
}

// Opens the first route that there is.
bool ChooseRoute() {
    HANDLE handle = OpenPeripheral(kI2cDriverPath, kShareNone);
    if (handle != INVALID_HANDLE_VALUE) {
        DeviceHandle = handle;
        LogWarnFun("NFC_ select I2C Driver");
        g_isI2cDriver = true;
        g_nfcOpDelayMs = kI2cOpDelayMs;
        return true;
    }
    LogErrorFun("NFC_Error opening Spb driver, last error = %u",
                static_cast<unsigned>(GetLastError()));
    handle = OpenPeripheral(kUsbDriverPath, kShareNone);
    if (handle != INVALID_HANDLE_VALUE) {
        DeviceHandle = handle;
        LogWarnFun("NFC_ select USB Driver");
        g_isUsbDriver = true;
        g_nfcOpDelayMs = kUsbOpDelayMs;
        return true;
    }
    handle = MatchNfcHidDevice();
    if (handle == INVALID_HANDLE_VALUE) {
        LogErrorFun("NFC_Error opening any driver, last error = %u",
                    static_cast<unsigned>(GetLastError()));
        return false;
    }
    DeviceHandle = handle;
    LogWarnFun("NFC_ select hid device");
    g_isHidDevice = true;
    g_hidReportHead[kReportIdOffset] = kOutgoingReportId;
    g_frameHead[kFrameMarkOffset] = kFrameMark;
    return true;
}

// Closes the device under the mutex that every transfer holds, so none can be under way on it. A
// pending interrupt or report request of an event thread fails.
void CloseDevice() {
    platform::Lock lock(GetNfcDeviceContext().mutex);
    platform::Lock started(g_deviceHandleMutex);
    const HANDLE handle = DeviceHandle.exchange(nullptr);
    if (handle != nullptr) {
        CloseHandle(handle);
    }
}

bool OpenRoute() {
    LogWarnFun("NFC_Create DeviceHandle");
    if (g_isHidDevice) {
        CloseDevice();
    } else if (DeviceHandle != nullptr) {
        LogWarnFun("DeviceHandle already exist");
        return true;
    }
    return ChooseRoute();
}

bool SendOpenCommand() {
    const std::unique_ptr<COpenCommand> command(new (std::nothrow) COpenCommand);
    if (command == nullptr) {
        return false;
    }
    if (DeviceHandle == nullptr) {
        LogErrorFun("Command parse fail in InitNfcDevice:");
        return false;
    }
    return WaitForCommand(command.get()) == ERROR_SUCCESS;
}

NfcSpbCommon* DriverFor(NfcLinkType linkType) {
    switch (linkType) {
        case NfcLinkSpb2:
            return &NfcSpbNormal::GetInstance();
        case NfcLinkSpb4:
            return &NfcSpbExtend::GetInstance();
        case NfcLinkUnset:
            break;
    }
    return nullptr;
}

bool SelectDriver() {
    NfcDeviceContext& context = GetNfcDeviceContext();
    platform::Lock lock(context.mutex);
    if (g_isI2cDriver) {
        if (!SendOpenCommand()) {
            return false;
        }
        DetectChip(context);
        context.spbDriverOps = DriverFor(context.linkType);
    } else if (g_isUsbDriver) {
        context.linkType = NfcLinkSpb2;
        context.spbDriverOps = DriverFor(NfcLinkSpb2);
    }
    return true;
}

// Tries one preparation step until it works, with the device free for others in the pauses.
template <class Step>
bool Prepare(Step step, const char* failure) {
    for (int attempt = 0; attempt < kPreparationTries; ++attempt) {
        {
            platform::Lock lock(GetNfcDeviceContext().mutex);
            if (step()) {
                return true;
            }
        }
        Sleep(kPreparationPauseMs);
    }
    LogErrorFun(failure);
    return false;
}

bool PrepareChip() {
    NfcDeviceContext& context = GetNfcDeviceContext();
    NfcSpbCommon* const driver = context.spbDriverOps;
    if (driver == nullptr) {
        LogErrorFun("spbDriverOps == nullptr");
        return false;
    }
    if (context.linkType == NfcLinkSpb4) {
        return true;
    }
    if (context.chipKind != NfcChipFm11nt082c) {
        std::uint8_t fdMode = 0;
        const auto selectMode = [&] {
            if (!driver->InitDevice(&fdMode)) {
                return false;
            }
            if (fdMode != kFdModeSelect) {
                context.chipKind = NfcChipFdModeOther;
            }
            return true;
        };
        if (!Prepare(selectMode, "InitDevice Fm11n failed")) {
            return false;
        }
    }
    const bool upperDyVal = context.chipKind == NfcChipFm11nt082c;
    return Prepare([&] { return driver->BitlockEnable(upperDyVal); }, "BitlockEnable failed");
}

bool StartKeyboard() {
    if (!g_RandEvent.value.Create(true)) {
        LogErrorFun("NFC error creating g_RandEvent - % u", static_cast<unsigned>(GetLastError()));
        return false;
    }
    // A failed start has cleared the flag; a thread that is started now must find it set.
    g_readHidRunning = true;
    switch (g_keyboardThread.EnsureStarted(ReadKeyboardDataThread)) {
        case EventThread::Start::kAlreadyExists:
            LogWarnFun("NFC_ g_hReadHidThread already exist");
            return true;
        case EventThread::Start::kStarted:
            LogWarnFun("NFC g_hReadHidThread Create pass");
            return true;
        case EventThread::Start::kFailed:
            break;
    }
    LogWarnFun("NFC g_hReadHidThread Create fail");
    return false;
}

// Some chips are left with the radio off until a message is on the tag and the threads run.
void SilenceRadio() {
    NfcDeviceContext& context = GetNfcDeviceContext();
    const NfcChipKind kind = context.chipKind;
    if (kind != NfcChipFdModeOther && kind != NfcChipFanli) {
        return;
    }
    NfcSpbCommon* const driver = context.spbDriverOps;
    if (driver == nullptr) {
        LogErrorFun("spbDriverOps == nullptr");
        return;
    }
    platform::Lock lock(context.mutex);
    driver->RadioDisable();
}

bool StartDevice() {
    if (!OpenRoute()) {
        return false;
    }
    if (!g_ioEvent.value.Create(true)) {
        LogErrorFun("NFC error creating I / O event - % u", static_cast<unsigned>(GetLastError()));
        return false;
    }
    if (!SelectDriver()) {
        return false;
    }
    if (IsDriverRoute()) {
        if (!PrepareChip()) {
            return false;
        }
    } else if (!StartKeyboard()) {
        return false;
    }
    SilenceRadio();
    return true;
}

void UndoStart() {
    g_interruptThread.Stop();
    CloseDevice();
    g_ioEvent.value.Close();
    if (g_hReadHidThread != nullptr) {
        g_readHidRunning = false;
        g_RandEvent.value.Signal();
    }
    g_RandEvent.value.Close();
    LogWarnFun("InitNfcDevice exit CloseHandle done");
}

}  // namespace

bool NfcProxy::InitNfcDevice() {
    platform::Lock content(g_contentMutex);
    // The end of another manager in the middle must not make the chip look like another one.
    const EventSlot::Keep keep(g_ioEvent.value);
    try {
        if (StartDevice()) {
            return true;
        }
    } catch (...) {
        UndoStart();
        throw;
    }
    UndoStart();
    return false;
}
