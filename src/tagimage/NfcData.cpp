#include "tagimage/NfcData.h"

#include "diagnostics/Log.h"

using namespace imageformat;

static_assert(sizeof(NfcData) < 900, "NfcData.h says how large an image is");

namespace {

// What the TLV length counts besides the URI text and the two record types.
constexpr std::size_t kFixedLength = kLengthWithoutUri - g_uriType.size() - g_mimeType.size();

}  // namespace

bool NfcData::HasParts() const {
    return m_uriHead && m_nfcHead && m_nfcBody;
}

bool NfcData::Init() {
    m_uriHead.emplace();
    if (!m_uriHead) {
        LogErrorFun("NfcData:: new uri head failed");
        return false;
    }
    m_nfcHead.emplace();
    if (!m_nfcHead) {
        LogErrorFun("NfcData:: new nfc head failed");
        return false;
    }
    m_nfcBody.emplace();
    if (!m_nfcBody) {
        LogErrorFun("NfcData:: new nfc body failed");
        return false;
    }
    if (!m_nfcBody->IsInit()) {
        LogErrorFun("NfcData:: init body failed");
        return false;
    }
    return CaculateLength();
}

bool NfcData::InitValue() {
    if (!HasParts()) {
        return false;
    }
    m_tagType = kNdefMessageTag;

    m_uriHead->m_recordType = kUriRecord;
    m_uriHead->m_bodyCount = 0;
    m_uriHead->m_type = g_uriType;
    m_uriHead->m_typeLen = static_cast<std::uint8_t>(g_uriType.size());

    m_nfcHead->m_recordType = kMimeRecord;
    m_nfcHead->m_bodyCount = 0;
    m_nfcHead->m_type = g_mimeType;
    m_nfcHead->m_typeLen = static_cast<std::uint8_t>(g_mimeType.size());
    return CaculateLength();
}

bool NfcData::CaculateLength() {
    if (!m_uriHead || !m_nfcHead) {
        return false;
    }
    m_nfcHead->m_bodyCount = static_cast<std::uint8_t>(kBodySize);
    m_uriHead->m_bodyCount = static_cast<std::uint8_t>(m_uri.size() + 1);
    const auto length = static_cast<std::uint32_t>(
        m_uri.size() + kFixedLength + m_uriHead->m_type.size() + m_nfcHead->m_type.size());
    if (length == 0 || length > kMaxLength) {
        LogErrorFun("length error");
        return false;
    }
    m_length = static_cast<std::uint8_t>(length);
    return true;
}

bool NfcData::SetMacAddr(const std::uint8_t (&mac)[kMacSize]) {
    if (!HasParts()) {
        return false;
    }
    if (!m_nfcBody->SetMacAddr(mac)) {
        LogErrorFun("NfcBody: SetMacAddr failed");
        return false;
    }
    return CaculateLength();
}

bool NfcData::SetUrl(const std::string& url) {
    if (!m_nfcHead || !m_uriHead || url.size() > kMaxStoredUriSize) {
        return false;
    }
    m_uri = std::string_view(url);
    LogWarnFun("m_uri size is %d", static_cast<int>(m_uri.size()));
    return CaculateLength();
}

bool NfcData::SetRandomNumber(const std::uint8_t (&number)[kNumberSize]) {
    if (!HasParts()) {
        return false;
    }
    if (!m_nfcBody->SetRandomNumber(number)) {
        LogErrorFun("NfcBody: SetRandomNumber failed");
        return false;
    }
    return CaculateLength();
}

bool NfcData::SetModel(const std::uint8_t (&model)[kModelSize]) {
    if (!HasParts()) {
        return false;
    }
    if (!m_nfcBody->SetModel(model)) {
        LogErrorFun("NfcBody: SetModel failed");
        return false;
    }
    return CaculateLength();
}

bool NfcData::FitsOnTag() const {
    return HasParts() && m_uri.size() <= kMaxUriSize;
}

void NfcData::ReplaceNumber(const std::array<std::uint8_t, kNumberSize>& number) {
    if (m_nfcBody) {
        m_nfcBody->ReplaceNumber(number);
    }
}

std::string NfcData::GetContent() const {
    const std::string uriHead = m_uriHead ? m_uriHead->GetContent() : std::string();
    const std::string nfcHead = m_nfcHead ? m_nfcHead->GetContent() : std::string();
    const std::string body = m_nfcBody ? m_nfcBody->GetContent() : std::string();

    std::string image;
    image.reserve(kMaxImageSize);
    image += static_cast<char>(m_tagType);
    image += static_cast<char>(m_length);
    image += uriHead;
    image += static_cast<char>(kHttpsPrefix);
    image += std::string_view(m_uri);
    image += nfcHead;
    image += body;
    image += static_cast<char>(m_terminator);
    LogWarnFun("m_uri (payload) length is %d", static_cast<int>(m_uri.size()));
    LogWarnFun("nfcBody (payload) length is %d", static_cast<int>(body.size()));
    return image;
}

std::string NfcData::GetUrl() const {
    return std::string(std::string_view(m_uri));
}

std::string NfcData::GetMacAddr() const {
    return m_nfcBody ? m_nfcBody->GetMacAddr() : std::string();
}

std::string NfcData::GetRandomNumber() const {
    return m_nfcBody ? m_nfcBody->GetRandomNumber() : std::string();
}

std::string NfcData::GetModel() const {
    return m_nfcBody ? m_nfcBody->GetModel() : std::string();
}
