// Fetches the random number alone, at the register where the PC type's image has it.
#include <memory>
#include <new>
#include <optional>

#include "chip/NfcDeviceContext.h"
#include "diagnostics/Log.h"
#include "events/EventState.h"
#include "platform/BoundedMemory.h"
#include "platform/platform.h"
#include "routes/BlePath.h"
#include "routes/KeyboardFrame.h"
#include "routes/NfcProxy.h"
#include "routes/RouteState.h"

namespace {

// Register of the number by PC type. They hold for a URI of 1 byte (type 2) and of 50 bytes (types
// 5 and 8), whatever the image on the tag says.
constexpr std::uint16_t kShortUriRegister = 73;
constexpr std::uint16_t kLongUriRegister = 122;

constexpr std::int32_t kHalf = 16;

std::optional<std::uint16_t> NumberRegister(std::uint8_t pcModel) {
    switch (pcModel) {
        case kPcTypeBlank:
            return kShortUriRegister;
        case kPcTypeOrvane:
        case kPcTypeVelmo:
            return kLongUriRegister;
        default:
            return std::nullopt;
    }
}

}  // namespace

bool NfcProxy::ReadRandNumber(std::uint8_t* number) {
    const std::optional<std::uint16_t> regAddr = NumberRegister(g_pcModel);
    if (!regAddr) {
        LogErrorFun("NFC g_pcModel type unsupport");
        return false;
    }
    LogWarnFun("NFC ReadRandNumber regAddr = %d ", *regAddr);
    if (g_isBtConnected && !BtReadRandomNum(*regAddr, number)) {
        LogWarnFun("[NFC_log] BtReadRandomNum fail ");
    }
    if (g_isHidDevice && g_mcuKbConnected && !ReadNumberOverHid(*regAddr, number)) {
        return false;
    }
    if (!g_isI2cDriver && !g_isUsbDriver) {
        return true;
    }
    if (!ReadNumberFromChip(*regAddr, number)) {
        LogErrorFun("ReadRandNum reg: %d failed", *regAddr);
        return false;
    }
    return true;
}

bool NfcProxy::ReadNumberOverHid(std::uint16_t regAddr, std::uint8_t* number) {
    const std::unique_ptr<NumberRequest> request(new (std::nothrow) NumberRequest);
    if (request == nullptr) {
        LogErrorFun("NFC ReadRandNumber malloc writeData fail");
        return false;
    }
    FillNumberRequest(*request, regAddr);
    if (!HidWrite(1, request->data(), static_cast<std::int32_t>(request->size()), 1)) {
        LogErrorFun("NFC HidRead write address fail");
        return false;
    }
    const EventSlot::Lease answered = g_RandEvent.value.Get();
    if (WaitForSingleObject(HandleOf(answered), kAnswerTimeoutMs) != WAIT_OBJECT_0) {
        LogErrorFun("NFC ReadRandNumber fail");
        return false;
    }
    const RandomNumber received = g_hidRandNumber.value.Get();
    if (platform::memcpy_s(number, received.size(), received.data(), received.size()) != 0) {
        LogErrorFun("NFC ReadRandNumber memcpy_s fail");
        return false;
    }
    return true;
}

bool NfcProxy::ReadNumberFromChip(std::uint16_t regAddr, std::uint8_t* number) {
    NfcDeviceContext& context = GetNfcDeviceContext();
    if (context.spbDriverOps == nullptr) {
        LogErrorFun("spbDriverOps == nullptr");
        return false;
    }
    if (!context.ReadReg(regAddr, kHalf, number)) {
        LogErrorFun("NFC ReadRandNumber fail 1");
        Sleep(g_nfcOpDelayMs);
        return false;
    }
    Sleep(g_nfcOpDelayMs);
    const auto secondHalf = static_cast<std::uint16_t>(regAddr + kHalf);
    LogWarnFun("NFC ReadRandNumber regAddr = %d", secondHalf);
    if (!context.ReadReg(secondHalf, kHalf, number + kHalf)) {
        Sleep(g_nfcOpDelayMs);
        LogErrorFun("NFC ReadRandNumber fail 2");
        return false;
    }
    Sleep(g_nfcOpDelayMs);
    g_tagRandNumber.value.Set(number);
    return true;
}

bool NfcProxy::SetLocalNum(const std::uint8_t* number) {
    RandomNumber local{};
    const bool taken = platform::memcpy_s(local.data(), local.size(), number, local.size()) == 0;
    g_localNumber.value.Set(local.data());
    if (!taken) {
        LogErrorFun("SetLocalNum memcpy_s fail");
    }
    return taken;
}
