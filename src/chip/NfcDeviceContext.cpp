#include "chip/NfcDeviceContext.h"

#include "diagnostics/Log.h"
#include "platform/NeverDestroyed.h"
#include "platform/platform.h"

namespace {

constexpr std::uint32_t kInitialDelayMs = 50;

}  // namespace

std::atomic<std::uint32_t> g_nfcOpDelayMs{kInitialDelayMs};
std::atomic<std::uint32_t> g_nfcReadDelayMs{kInitialDelayMs};

NfcDeviceContext& GetNfcDeviceContext() {
    static platform::NeverDestroyed<NfcDeviceContext> context;
    return context.value;
}

ChipTraits NfcDeviceContext::Traits() const {
    const NfcSpbCommon* const driver = spbDriverOps;
    return driver == nullptr ? ChipTraits{} : driver->Traits(chipKind);
}

bool NfcDeviceContext::WriteReg(std::uint16_t reg, const std::uint8_t* data, std::int32_t len) {
    NfcSpbCommon* const driver = spbDriverOps;
    if (driver == nullptr) {
        LogErrorFun("spbDriverOps == nullptr");
        return false;
    }
    platform::Lock lock(mutex);
    return driver->WriteReg(reg, data, len);
}

bool NfcDeviceContext::ReadReg(std::uint16_t reg, std::int32_t len, std::uint8_t* buffer) {
    NfcSpbCommon* const driver = spbDriverOps;
    if (driver == nullptr) {
        LogErrorFun("spbDriverOps == nullptr");
        return false;
    }
    platform::Lock lock(mutex);
    return driver->ReadReg(reg, len, buffer);
}
