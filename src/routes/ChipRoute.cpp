// The route to a chip behind a kernel driver, on I2C or USB: opening the driver, finding out which
// chip it is, preparing it.
#include <cstdint>
#include <memory>
#include <new>

#include "chip/DetectChip.h"
#include "chip/NfcDeviceContext.h"
#include "diagnostics/Log.h"
#include "events/DriverKind.h"
#include "events/DriverThreads.h"
#include "events/Listener.h"
#include "platform/NeverDestroyed.h"
#include "platform/platform.h"
#include "routes/ChipImage.h"
#include "routes/Route.h"
#include "transfer/NfcCommand.h"
#include "transfer/OpenDevice.h"
#include "transfer/WaitForCommand.h"

namespace {

constexpr WCHAR kI2cDriverPath[] = L"\\\\.\\SPBNFCDRIVER";
constexpr WCHAR kUsbDriverPath[] = L"\\\\.\\KEYBOARDNFC";
constexpr DWORD kShareNone = 0;

constexpr std::uint32_t kI2cOpDelayMs = 40;
constexpr std::uint32_t kUsbOpDelayMs = 10;

constexpr int kPreparationTries = 5;
constexpr DWORD kPreparationPauseMs = 500;

bool SendOpenCommand() {
    const std::unique_ptr<COpenCommand> command(new (std::nothrow) COpenCommand);
    if (DeviceHandle == nullptr) {
        LogErrorFun("Command parse fail in InitNfcDevice:");
        return false;
    }
    return WaitForCommand(command.get()) == ERROR_SUCCESS;  // null is refused there
}

bool SelectDriver() {
    NfcDeviceContext& context = GetNfcDeviceContext();
    const platform::Lock lock(context.mutex);
    if (g_isI2cDriver) {
        if (!SendOpenCommand()) {
            return false;
        }
        DetectChip(context);
    } else {
        context.linkType = NfcLinkSpb2;
    }
    context.spbDriverOps = DriverFor(context.linkType);
    return true;
}

// Tries one preparation step until it works, with the device free for others in the pauses.
template <class Step>
bool TryPreparation(Step step) {
    for (int attempt = 0; attempt < kPreparationTries; ++attempt) {
        {
            const platform::Lock lock(GetNfcDeviceContext().mutex);
            if (step()) {
                return true;
            }
        }
        Sleep(kPreparationPauseMs);
    }
    return false;
}

bool PrepareChip() {
    NfcDeviceContext& context = GetNfcDeviceContext();
    NfcSpbCommon* const driver = context.spbDriverOps;
    if (driver == nullptr) {
        LogErrorFun("spbDriverOps == nullptr");
        return false;
    }
    if (context.Traits().selectsMode) {
        std::uint8_t fdMode = 0;
        const auto selectMode = [&] {
            if (!driver->InitDevice(&fdMode)) {
                return false;
            }
            context.chipKind = driver->KindInMode(context.chipKind, fdMode);
            return true;
        };
        if (!TryPreparation(selectMode)) {
            LogErrorFun("InitDevice Fm11n failed");
            return false;
        }
    }
    const ChipTraits traits = context.Traits();
    if (traits.locksTag &&
        !TryPreparation([&] { return driver->BitlockEnable(traits.upperDyVal); })) {
        LogErrorFun("BitlockEnable failed");
        return false;
    }
    return true;
}

// Some chips are left with the radio off until a message is on the tag and the threads run.
void SilenceRadio() {
    NfcDeviceContext& context = GetNfcDeviceContext();
    if (!context.Traits().startsSilent) {
        return;
    }
    const platform::Lock lock(context.mutex);
    context.spbDriverOps.load()->RadioDisable();
}

void EnableRadio() {
    NfcDeviceContext& context = GetNfcDeviceContext();
    NfcSpbCommon* const driver = context.spbDriverOps;
    if (driver == nullptr) {
        LogErrorFun("spbDriverOps == nullptr");
        return;
    }
    if (!driver->radioEnabled) {
        const platform::Lock lock(context.mutex);
        driver->RadioEnable();
    }
}

class ChipRoute final : public Route {
  public:
    bool IsActive() const override { return IsFound(); }
    bool WriteImage(const std::uint8_t* image, std::int32_t length) override
        TAGPORT_REQUIRES(ContentLock::m_mutex) {
        return WriteImageToChip(image, length);
    }
    bool ReadNumber(std::uint16_t regAddr, std::uint8_t* number) override
        TAGPORT_REQUIRES(ContentLock::m_mutex) {
        if (!ReadNumberFromChip(regAddr, number)) {
            LogErrorFun("ReadRandNum reg: %d failed", regAddr);
            return false;
        }
        return true;
    }

    UniqueHandle Open() override TAGPORT_REQUIRES(ContentLock::m_mutex) {
        UniqueHandle device = OpenDevice::Open(kI2cDriverPath, kShareNone);
        if (device) {
            LogWarnFun("NFC_ select I2C Driver");
            g_isI2cDriver = true;
            g_nfcOpDelayMs = kI2cOpDelayMs;
            return device;
        }
        LogErrorFun("NFC_Error opening Spb driver, last error = %u",
                    static_cast<unsigned>(GetLastError()));
        device = OpenDevice::Open(kUsbDriverPath, kShareNone);
        if (device) {
            LogWarnFun("NFC_ select USB Driver");
            g_isUsbDriver = true;
            g_nfcOpDelayMs = kUsbOpDelayMs;
        }
        return device;
    }
    bool IsFound() const override { return DriverRoute() != kRouteNone; }
    bool Start() override TAGPORT_REQUIRES(ContentLock::m_mutex) {
        if (!SelectDriver() || !PrepareChip()) {
            return false;
        }
        SilenceRadio();
        return true;
    }
    bool IsReadBeforeWrite() const override {
        return g_isI2cDriver && GetNfcDeviceContext().Traits().isReadBeforeWrite;
    }
    void MakeReadable() override TAGPORT_REQUIRES(ContentLock::m_mutex) { EnableRadio(); }
    void OnDeviceClosed() override TAGPORT_REQUIRES(ContentLock::m_mutex) {
        InterruptLife().OnDeviceClosed();
    }

    void SetRunFlag() override { InterruptLife().SetRunFlag(); }
    void StopLoop() override { StopDriverThreads(); }
};

}  // namespace

Route& ChipRouteInstance() {
    static platform::NeverDestroyed<ChipRoute> route;
    return route.value;
}
