#include "tagimage/NfcBody.h"

#include <algorithm>

#include "diagnostics/Log.h"
#include "platform/BoundedMemory.h"

using namespace imageformat;

namespace {

template <std::size_t Size>
std::string ToBytes(const std::uint8_t (&field)[Size]) {
    return {reinterpret_cast<const char*>(field), Size};
}

// Parse has checked the size, so a plain copy is enough, which the compiler reduces to moves.
template <std::size_t Size>
bool CopyOut(std::uint8_t (&field)[Size], std::string_view bytes, std::size_t offset) {
    return bytes.copy(reinterpret_cast<char*>(field), Size, offset) == Size;
}

}  // namespace

NfcBody::NfcBody() {
    if (!platform::ClearField(m_macAddr)) {
        LogErrorFun("NfcBody build m_macAddr fail");
    }
    if (!platform::ClearField(m_randomNumber)) {
        LogErrorFun("NfcBody build m_randomNumber fail");
    }
    if (!platform::ClearField(m_pcModel)) {
        LogErrorFun("NfcBody build m_pcModel fail");
    }
    m_version[0] = kVersionMark;
    m_version[1] = kVersionMinor;
}

bool NfcBody::IsInit() const {
    if (m_version[0] == kVersionMark) {
        return true;
    }
    LogErrorFun("NfcBody not init");
    return false;
}

bool NfcBody::SetMacAddr(const std::uint8_t (&mac)[kMacSize]) {
    if (!platform::CopyField<sizeof(m_macAddr)>(m_macAddr, mac)) {
        LogErrorFun("SetMac memcpy_s fail");
        return false;
    }
    return true;
}

bool NfcBody::SetRandomNumber(const std::uint8_t (&number)[kNumberSize]) {
    if (!platform::CopyField<sizeof(m_randomNumber)>(m_randomNumber, number)) {
        LogErrorFun("SetRandomNumber memcpy_s fail");
        return false;
    }
    return true;
}

void NfcBody::ReplaceNumber(const std::array<std::uint8_t, kNumberSize>& number) {
    std::copy(number.begin(), number.end(), m_randomNumber);
}

bool NfcBody::SetModel(const std::uint8_t (&model)[kModelSize]) {
    if (!platform::CopyField<sizeof(m_pcModel)>(m_pcModel, model)) {
        LogErrorFun("SetModel memcpy_s fail");
        return false;
    }
    return true;
}

std::string NfcBody::GetMacAddr() const {
    return ToBytes(m_macAddr);
}

std::string NfcBody::GetRandomNumber() const {
    return ToBytes(m_randomNumber);
}

std::string NfcBody::GetModel() const {
    return ToBytes(m_pcModel);
}

std::string NfcBody::GetContent() const {
    std::string bytes;
    bytes.reserve(kBodySize);
    bytes += ToBytes(m_version);
    bytes += GetMacAddr();
    bytes += GetRandomNumber();
    bytes += GetModel();
    LogWarnFun("bodyContent CaculateLength() %d", static_cast<int>(bytes.size()));
    return bytes;
}

bool NfcBody::Parse(std::string_view bytes) {
    if (bytes.size() < kBodySize || bytes.size() > kMaxBodySize) {
        return false;
    }
    if (!CopyOut(m_version, bytes, 0)) {
        LogErrorFun("Parse memcpy_s m_version fail");
        return false;
    }
    if (!CopyOut(m_macAddr, bytes, kMacOffset)) {
        LogErrorFun("Parse memcpy_s m_macAddr fail");
        return false;
    }
    if (!CopyOut(m_randomNumber, bytes, kNumberOffset)) {
        LogErrorFun("Parse memcpy_s m_randomNumber fail");
        return false;
    }
    if (!CopyOut(m_pcModel, bytes, kModelOffset)) {
        LogErrorFun("Parse memcpy_s m_pcModel fail");
        return false;
    }
    return true;
}
