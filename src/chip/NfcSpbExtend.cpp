#include "chip/NfcSpbExtend.h"

#include <array>
#include <vector>

#include "chip/NfcDeviceContext.h"
#include "chip/Registers.h"
#include "diagnostics/Log.h"
#include "platform/Check.h"
#include "platform/NeverDestroyed.h"
#include "platform/platform.h"
#include "transfer/SpbTransfer.h"

namespace {

constexpr std::size_t kHeadSize = 4;
constexpr std::uint32_t kLargestWrite = 250;
constexpr std::size_t kLargestFrame = 250;
constexpr std::uint16_t kBlockSize = 4;  // writes start at a multiple of it

// Operations, byte 2 of the head.
constexpr std::uint8_t kWrite = 0;
constexpr std::uint8_t kReadRegister = 1;
constexpr std::uint8_t kReadState = 2;

// States that are written, and the register of the write check.
constexpr std::uint16_t kRadioOnState = 0xF0F1;
constexpr std::uint16_t kRadioOffState = 0xF0F2;
constexpr std::uint16_t kWriteCheckRegister = 0xF0F8;

// What a Fanli chip has in its identity register.
constexpr std::uint8_t kIdentityFanli = 0x22;

// The answer of the write check: firstFailAddr (2 bytes) and ticks (4), both little-endian.
constexpr std::size_t kWriteCheckSize = 6;
constexpr std::size_t kWriteCheckTicksOffset = 2;

// The interrupt status: code of the event (1 byte), para1 (4), ticks (4), both little-endian.
constexpr std::uint16_t kInterruptStatusState = 0;
constexpr std::size_t kInterruptStatusSize = 9;
constexpr std::size_t kPara1Offset = 1;
constexpr std::size_t kStatusTicksOffset = 5;
constexpr std::uint8_t kEnterField = 1;
constexpr std::uint8_t kLeaveField = 2;
constexpr std::uint8_t kMcuStart = 3;
constexpr std::uint8_t kMcuReset = 4;
constexpr std::uint8_t kMcuNoData = 255;

using Head = std::array<std::uint8_t, kHeadSize>;

Head MakeHead(std::uint16_t number, std::uint8_t operation, std::int32_t len) {
    return {static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number & 0xFF),
            operation, static_cast<std::uint8_t>(len & 0xFF)};
}

bool Send(const std::uint8_t* frame, std::size_t size) {
    TAGPORT_CHECK(platform::HoldsLock(kExtendLock));
    return NfcSpbWrite(frame, static_cast<std::uint32_t>(size));
}

bool SendHead(const Head& head) {
    return Send(head.data(), head.size());
}

// The number of `Size` bytes, 1 to 4, that begins at `bytes`, low byte first.
template <std::size_t Size>
std::uint32_t LittleEndian(const std::uint8_t* bytes) {
    static_assert(Size >= 1 && Size <= sizeof(std::uint32_t));
    std::uint32_t value = 0;
    for (std::size_t i = Size; i > 0; --i) {
        value = value << 8 | bytes[i - 1];
    }
    return value;
}

InterruptStatus::Event EventOf(std::uint8_t code) {
    using Event = InterruptStatus::Event;
    switch (code) {
        case kEnterField:
            return Event::kEnterField;
        case kLeaveField:
            return Event::kLeaveField;
        case kMcuStart:
            return Event::kMcuStart;
        case kMcuReset:
            return Event::kMcuReset;
        case kMcuNoData:
            return Event::kNoData;
        default:
            return Event::kUnknown;
    }
}

}  // namespace

NfcSpbExtend& NfcSpbExtend::GetInstance() {
    static platform::NeverDestroyed<NfcSpbExtend> driver;
    return driver.value;
}

NfcChipKind NfcSpbExtend::Probe() {
    std::uint8_t identity = 0;
    if (!GetInstance().ReadReg(kIdentityRegister, 1, &identity)) {
        LogErrorFun("Nfc Extend ReadReg 0 failed!");
        return NfcChipLikeFm11n;
    }
    if (identity != kIdentityFanli) {
        LogErrorFun("Nfc chip not fanli, unknown!");
        return NfcChipLikeFm11n;
    }
    LogErrorFun("Nfc chip Fanli");
    return NfcChipFanli;
}

bool NfcSpbExtend::WriteReg(std::uint16_t reg, const std::uint8_t* data, std::int32_t len) {
    if (static_cast<std::uint32_t>(len) > kLargestWrite) {
        LogErrorFun("reg: %d, infoLength: %d", reg, len);
        return false;
    }
    if (reg % kBlockSize != 0) {
        LogErrorFun("reg: 0x%x need align with block", reg);
        return false;
    }
    const Head head = MakeHead(reg, kWrite, len);
    std::vector<std::uint8_t> frame(head.begin(), head.end());
    if (data != nullptr) {
        frame.insert(frame.end(), data, data + len);
    }
    if (frame.size() > kLargestFrame) {
        LogErrorFun("NfcExtend len: %d too large", static_cast<int>(frame.size()));
        return false;
    }
    platform::Lock lock(m_mutex);
    return Send(frame.data(), frame.size());
}

bool NfcSpbExtend::ReadReg(std::uint16_t reg, std::int32_t len, std::uint8_t* buffer) {
    if (len < 1 || len > kLargestRead || buffer == nullptr) {
        LogErrorFun("reg: %d, readLength: %d", reg, len);
        return false;
    }
    return Ask(kReadRegister, reg, len, buffer);
}

bool NfcSpbExtend::ReadState(std::uint16_t state, std::int32_t len, std::uint8_t* buffer) {
    if (len < 1 || len > kLargestRead || buffer == nullptr) {
        LogErrorFun("state: %d, readLength: %d", state, len);
        return false;
    }
    return Ask(kReadState, state, len, buffer);
}

// One question and its answer, as one transaction.
bool NfcSpbExtend::Ask(std::uint8_t operation, std::uint16_t number, std::int32_t len,
                       std::uint8_t* buffer) {
    const Head head = MakeHead(number, operation, len);
    platform::Lock lock(m_mutex);
    if (!SendHead(head)) {
        if (operation == kReadState) {
            LogErrorFun("NfcExtend first write state: %d failed", number);
        } else {
            LogErrorFun("NfcExtend first write address: %d failed", number);
        }
        return false;
    }
    Sleep(g_nfcOpDelayMs);
    return NfcSpbRead(len, buffer);
}

bool NfcSpbExtend::ReadInterruptStatus(InterruptStatus& status) {
    std::array<std::uint8_t, kInterruptStatusSize> bytes{};
    if (!ReadState(kInterruptStatusState, kInterruptStatusSize, bytes.data())) {
        return false;
    }
    status.event = EventOf(bytes[0]);
    status.code = bytes[0];
    status.para1 = LittleEndian<4>(bytes.data() + kPara1Offset);
    status.enterSum = static_cast<int>(status.para1 >> 16);
    status.leaveSum = static_cast<int>(status.para1 & 0xFFFF);
    status.ticks = static_cast<int>(LittleEndian<4>(bytes.data() + kStatusTicksOffset));
    return true;
}

ChipTraits NfcSpbExtend::Traits(NfcChipKind kind) const {
    ChipTraits traits;
    traits.reportsStatus = true;
    traits.reportsVisits = kind != NfcChipLikeFanli;
    traits.isReadBeforeWrite = false;
    traits.checksWrites = kind == NfcChipFanli;
    traits.startsSilent = kind == NfcChipFanli;
    return traits;
}

bool NfcSpbExtend::InitDevice(std::uint8_t* fdMode) {
    *fdMode = 0;
    LogErrorFun("NfcExtend fanli not need init device here, it's ok!");
    return true;
}

bool NfcSpbExtend::BitlockEnable(bool /*upperDyVal*/) {
    LogErrorFun("NfcExtend fanli not need enable bitlock here, it's ok!");
    return true;
}

bool NfcSpbExtend::RadioDisable() {
    return SetRadio(kRadioOffState, false, "Nfc RadioDisable succ");
}

bool NfcSpbExtend::RadioEnable() {
    return SetRadio(kRadioOnState, true, "Nfc RadioEnable succ");
}

// The chip's acceptance of the frame counts as success; there is nothing to read back.
bool NfcSpbExtend::SetRadio(std::uint16_t state, bool on, const char* done) {
    const Head head = MakeHead(state, kWrite, 0);
    platform::Lock lock(m_mutex);
    if (!SendHead(head)) {
        LogErrorFun("NfcExtend first write state: %d failed", state);
        return false;
    }
    Sleep(g_nfcOpDelayMs);
    LogWarnFun("%s", done);
    radioEnabled = on;
    return true;
}

bool NfcSpbExtend::CheckWriteTag(std::uint8_t* passed) {
    *passed = 0;
    const Head head = MakeHead(kWriteCheckRegister, kReadRegister, kWriteCheckSize);
    platform::Lock lock(m_mutex);
    if (!SendHead(head)) {
        LogErrorFun("NfcExtend Check WriteTag Success: %x failed", kWriteCheckRegister);
        return false;
    }
    Sleep(g_nfcOpDelayMs);
    std::array<std::uint8_t, kWriteCheckSize> answer{};
    if (!NfcSpbRead(kWriteCheckSize, answer.data())) {
        LogErrorFun("NfcExtend Check WriteTag Failed: %d failed", kWriteCheckRegister);
        return false;
    }
    const unsigned firstFailAddr = LittleEndian<2>(answer.data());
    const unsigned ticks = LittleEndian<4>(answer.data() + kWriteCheckTicksOffset);
    LogWarnFun("NfcExtend Check WriteTag , firstFailAddr: %x, ticks: %d", firstFailAddr,
               static_cast<int>(ticks));
    if (firstFailAddr != 0) {
        return false;
    }
    *passed = 1;
    return true;
}
