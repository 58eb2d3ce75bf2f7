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

template <std::size_t Size>
bool Clear(std::uint8_t (&field)[Size]) {
    return platform::memset_s(field, Size, 0, Size) == 0;
}

// The source is a pointer here: a caller's reference may refer to nothing, and only the bounded
// copy checks that.
template <std::size_t Size>
bool Copy(std::uint8_t (&field)[Size], const std::uint8_t* source) {
    return platform::memcpy_s(field, Size, source, Size) == 0;
}

}  // namespace

NfcBody::NfcBody() {
    if (!Clear(m_macAddr)) {
        LogErrorFun("NfcBody build m_macAddr fail");
    }
    if (!Clear(m_randomNumber)) {
        LogErrorFun("NfcBody build m_randomNumber fail");
    }
    if (!Clear(m_pcModel)) {
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
    if (!Copy(m_macAddr, mac)) {
        LogErrorFun("SetMac memcpy_s fail");
        return false;
    }
    return true;
}

bool NfcBody::SetRandomNumber(const std::uint8_t (&number)[kNumberSize]) {
    if (!Copy(m_randomNumber, number)) {
        LogErrorFun("SetRandomNumber memcpy_s fail");
        return false;
    }
    return true;
}

void NfcBody::ReplaceNumber(const std::array<std::uint8_t, kNumberSize>& number) {
    std::copy(number.begin(), number.end(), m_randomNumber);
}

bool NfcBody::SetModel(const std::uint8_t (&model)[kModelSize]) {
    if (!Copy(m_pcModel, model)) {
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
    std::string content;
    content.reserve(kBodySize);
    content += ToBytes(m_version);
    content += GetMacAddr();
    content += GetRandomNumber();
    content += GetModel();
    LogWarnFun("bodyContent CaculateLength() %d", static_cast<int>(content.size()));
    return content;
}
