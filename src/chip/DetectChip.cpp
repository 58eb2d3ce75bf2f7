// Chip detection, and the table of frame formats. A new format is one driver and one row here.
#include "chip/DetectChip.h"

#include <algorithm>
#include <array>
#include <iterator>

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

constexpr std::uint32_t kSpb2DelayMs = 10;

/// A frame format.
struct Format {
    NfcLinkType linkType;
    NfcSpbCommon& (*driver)();

    // Called when the chip is there and does not answer in spb2. Returns the chip, or
    // NfcChipLikeFm11n if it is none of this format. Null for spb2, which detection begins with.
    NfcChipKind (*probe)();
    std::uint32_t probeDelayMs;  // g_nfcOpDelayMs while probing
    std::uint32_t delayMs;       // both delays afterwards

    // What a chip is taken for that no probe has recognised, in one row; else NfcChipLikeFm11n.
    NfcChipKind unrecognised;
};

// Probes run in this order.
constexpr Format kFormats[] = {
    {NfcLinkSpb2, []() -> NfcSpbCommon& { return NfcSpbNormal::GetInstance(); }, nullptr, 0, 0,
     NfcChipLikeFm11n},
    {NfcLinkSpb4, []() -> NfcSpbCommon& { return NfcSpbExtend::GetInstance(); },
     NfcSpbExtend::Probe, 80, 40, NfcChipLikeFanli},
};

void Publish(NfcDeviceContext& context, NfcLinkType linkType, NfcChipKind chipKind,
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

// The chip is there and does not answer in spb2.
void ProbeOtherFormats(NfcDeviceContext& context) {
    const Format* found = nullptr;
    NfcChipKind kind = NfcChipLikeFm11n;
    for (const Format& format : kFormats) {
        if (format.probe != nullptr && kind == NfcChipLikeFm11n) {
            g_nfcOpDelayMs = format.probeDelayMs;
            kind = format.probe();
            found = &format;
        }
    }
    if (kind == NfcChipLikeFm11n) {
        found = std::find_if(std::begin(kFormats), std::end(kFormats), [](const Format& format) {
            return format.unrecognised != NfcChipLikeFm11n;
        });
        kind = found->unrecognised;
    }
    Publish(context, found->linkType, kind, found->delayMs, found->delayMs);
}

}  // namespace

NfcSpbCommon* DriverFor(NfcLinkType linkType) {
    for (const Format& format : kFormats) {
        if (format.linkType == linkType) {
            return &format.driver();
        }
    }
    return nullptr;
}

void DetectChip(NfcDeviceContext& context) {
    // First pass, with no pause between address and read: only one chip answers that fast.
    g_nfcReadDelayMs = 0;
    Identity id{};
    if (ReadIdentity(id) && IsModel(id, kModelFm11nt082c)) {
        LogErrorFun("Nfc chip FM11NT082C");
        Publish(context, NfcLinkSpb2, NfcChipFm11nt082c, kSpb2DelayMs, 0);
        return;
    }
    Sleep(g_nfcOpDelayMs);
    g_nfcReadDelayMs = g_nfcOpDelayMs.load();

    NfcChipKind kind = NfcChipLikeFm11n;
    if (ReadIdentity(id)) {
        if (std::all_of(id.begin(), id.end(), [](std::uint8_t b) { return b == kNoAnswer; })) {
            ProbeOtherFormats(context);
            return;
        }
        if (IsModel(id, kModelFm11nt081)) {
            LogErrorFun("Nfc chip FM11NT081");
            kind = NfcChipFm11nt081;
        }
    }
    Publish(context, NfcLinkSpb2, kind, kSpb2DelayMs, kSpb2DelayMs);
    LogErrorFun("Nfc spb2 format, like FM11N chip");
}
