#include "chip/DetectChip.h"

#include <algorithm>
#include <array>

#include "chip/NfcSpbExtend.h"
#include "chip/NfcSpbNormal.h"
#include "chip/Registers.h"
#include "diagnostics/Log.h"
#include "platform/platform.h"

namespace {

using Identity = std::array<std::uint8_t, 9>;

// The identity bytes that are looked at.
constexpr std::size_t kMakerByte = 0;
constexpr std::size_t kModelByte = 7;
constexpr std::uint8_t kMakerFm11n = 0x1D;
constexpr std::uint8_t kModelFm11nt081 = 0x00;
constexpr std::uint8_t kModelFm11nt082c = 0x10;
constexpr std::uint8_t kNoAnswer = 0xFF;
constexpr std::uint8_t kIdentityFanli = 0x22;

// Pauses, in milliseconds.
constexpr std::uint32_t kSpb2DelayMs = 10;
constexpr std::uint32_t kSpb4ProbeDelayMs = 80;
constexpr std::uint32_t kSpb4DelayMs = 40;

void Settle(NfcDeviceContext& context, NfcLinkType linkType, NfcChipKind chipKind,
            std::uint32_t opDelayMs, std::uint32_t readDelayMs) {
    g_nfcOpDelayMs = opDelayMs;
    g_nfcReadDelayMs = readDelayMs;
    context.chipKind = chipKind;
    context.linkType = linkType;
}

bool ReadIdentity(Identity& id) {
    const auto length = static_cast<std::int32_t>(id.size());
    if (!NfcSpbNormal::GetInstance().ReadReg(kIdentityRegister, length, id.data())) {
        LogErrorFun("Nfc ReadReg 0 failed!");
        return false;
    }
    return true;
}

bool IsModel(const Identity& id, std::uint8_t model) {
    return id[kMakerByte] == kMakerFm11n && id[kModelByte] == model;
}

NfcChipKind ProbeSpb4() {
    g_nfcOpDelayMs = kSpb4ProbeDelayMs;
    std::uint8_t identity = 0;
    if (!NfcSpbExtend::GetInstance().ReadReg(kIdentityRegister, 1, &identity)) {
        LogErrorFun("Nfc Extend ReadReg 0 failed!");
        return NfcChipLikeFanli;
    }
    if (identity != kIdentityFanli) {
        LogErrorFun("Nfc chip not fanli, unknown!");
        return NfcChipLikeFanli;
    }
    LogErrorFun("Nfc chip Fanli");
    return NfcChipFanli;
}

}  // namespace

void DetectChip(NfcDeviceContext& context) {
    // First pass, with no gap between address and read: only one chip answers that fast.
    g_nfcReadDelayMs = 0;
    Identity id{};
    if (ReadIdentity(id) && IsModel(id, kModelFm11nt082c)) {
        LogErrorFun("Nfc chip FM11NT082C");
        Settle(context, NfcLinkSpb2, NfcChipFm11nt082c, kSpb2DelayMs, 0);
        return;
    }
    Sleep(g_nfcOpDelayMs);
    g_nfcReadDelayMs = g_nfcOpDelayMs.load();

    NfcChipKind kind = NfcChipLikeFm11n;
    id.fill(0);
    if (ReadIdentity(id)) {
        if (std::all_of(id.begin(), id.end(), [](std::uint8_t b) { return b == kNoAnswer; })) {
            kind = ProbeSpb4();
            Settle(context, NfcLinkSpb4, kind, kSpb4DelayMs, kSpb4DelayMs);
            return;
        }
        if (IsModel(id, kModelFm11nt081)) {
            LogErrorFun("Nfc chip FM11NT081");
            kind = NfcChipFm11nt081;
        }
    }
    Settle(context, NfcLinkSpb2, kind, kSpb2DelayMs, kSpb2DelayMs);
    LogErrorFun("Nfc spb2 format, like FM11N chip");
}
