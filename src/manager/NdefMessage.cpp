#include <tagport/NdefMessage.h>

#include "diagnostics/Log.h"
#include "manager/Limits.h"
#include "platform/BoundedMemory.h"

using platform::ClearField;
using platform::CopyField;

NdefMessage::NdefMessage() {
    if (!ClearField(m_macAddr)) {
        LogErrorFun("NdefMessage build m_macAddr fail");
    }
    if (!ClearField(m_randomNumber)) {
        LogErrorFun("NdefMessage build m_randomNumber fail");
    }
    if (!ClearField(m_pcModel)) {
        LogErrorFun("NdefMessage build m_pcModel fail");
    }
}

NdefMessage::NdefMessage(const NdefMessage& other) = default;
NdefMessage& NdefMessage::operator=(const NdefMessage& other) = default;
NdefMessage::~NdefMessage() = default;

int NdefMessage::SetUrl(const std::string& url) {
    if (url.empty() || url.size() > kMaxUrlSize) {
        return kFailure;
    }
    m_url = url;
    return kSuccess;
}

int NdefMessage::GetUrl(std::string& url) {
    url = m_url;
    return kSuccess;
}

int NdefMessage::SetMac(const std::uint8_t (&mac)[6]) {
    if (!CopyField<sizeof(m_macAddr)>(m_macAddr, mac)) {
        LogErrorFun("SetMac memcpy_s fail");
        return kFailure;
    }
    return kSuccess;
}

int NdefMessage::GetMac(std::uint8_t (&mac)[6]) {
    if (!CopyField<sizeof(m_macAddr)>(mac, m_macAddr)) {
        LogErrorFun("GetMac memcpy_s fail");
        return kFailure;
    }
    return kSuccess;
}

int NdefMessage::SetRandomNumber(const std::uint8_t (&number)[32]) {
    if (!CopyField<sizeof(m_randomNumber)>(m_randomNumber, number)) {
        LogErrorFun("SetRandomNumber memcpy_s fail");
        return kFailure;
    }
    return kSuccess;
}

int NdefMessage::GetRandomNumber(std::uint8_t (&number)[32]) {
    if (!CopyField<sizeof(m_randomNumber)>(number, m_randomNumber)) {
        LogErrorFun("GetRandomNumber memcpy_s fail");
        return kFailure;
    }
    return kSuccess;
}

int NdefMessage::SetModel(const std::uint8_t (&model)[4]) {
    if (!CopyField<sizeof(m_pcModel)>(m_pcModel, model)) {
        LogErrorFun("SetModel memcpy_s fail");
        return kFailure;
    }
    return kSuccess;
}

int NdefMessage::GetModel(std::uint8_t (&model)[4]) {
    if (!CopyField<sizeof(m_pcModel)>(model, m_pcModel)) {
        LogErrorFun("GetModel memcpy_s fail");
        return kFailure;
    }
    return kSuccess;
}

int NdefMessage::SetPcType(const std::uint8_t& type) {
    m_pcType = type;
    return kSuccess;
}

int NdefMessage::GetPcType(std::uint8_t& type) {
    type = m_pcType;
    return kSuccess;
}
