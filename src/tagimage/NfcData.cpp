#include "tagimage/NfcData.h"

#include "diagnostics/Log.h"

using namespace imageformat;

static_assert(sizeof(NfcData) < 900, "NfcData.h says how large an image is");

namespace {

// What the TLV length counts besides the URI text and the two record types.
constexpr std::size_t kFixedLength = kLengthWithoutUri - g_uriType.size() - g_mimeType.size();

// An image with a higher TLV length is refused before its size is looked at.
constexpr std::uint8_t kMaxParsedLength = 253;
constexpr std::size_t kMinPayloadSize = kUriHeadSize;

unsigned Shown(std::uint8_t byte) {
    return byte;
}

}  // namespace

bool NfcData::HasParts() const {
    return m_nfcBody.has_value();  // the part that Init makes last
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
    if (length > kMaxLength) {
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

// A tag may hold any bytes: every position is compared with the length before it is used, since the
// lengths come from the tag.
bool NfcData::Parse(std::string_view image) {
    LogWarnFun("NfcData parse begin");
    if (image.size() < kFrameSize || image.size() > kMaxImageSize) {
        return false;
    }
    m_tagType = ByteAt(image, kTagOffset);
    if (m_tagType != kNdefMessageTag) {
        LogErrorFun("NFC Parse tag type is err : %02X", Shown(m_tagType));
        return false;
    }
    m_length = ByteAt(image, kLengthOffset);
    if (m_length > kMaxParsedLength) {
        return false;
    }
    if (image.size() - kFrameSize != m_length) {
        return false;
    }
    const std::string_view payload = image.substr(kPayloadOffset, m_length);
    if (payload.size() < kMinPayloadSize) {
        return false;
    }
    std::uint8_t bodyCount = 0;
    if (!HeaderParse(payload, bodyCount)) {
        LogErrorFun("NFC  HeaderParse error");
        return false;
    }
    LogWarnFun("NFC PC content parse begin");
    const std::size_t secondOffset = bodyCount + kUriHeadSize;
    if (secondOffset > payload.size()) {
        return false;
    }
    if (!ContentParse(payload.substr(secondOffset))) {
        LogErrorFun("Parse NFC record mime Type error");
        return false;
    }
    m_terminator = ByteAt(image, kPayloadOffset + m_length);
    return true;
}

bool NfcData::HeaderParse(std::string_view record, std::uint8_t& bodyCount) {
    const std::uint8_t recordType = ByteAt(record, kRecordTypeOffset);
    if (recordType != kUriRecord) {
        LogErrorFun("Parse URI record type error : %02X", Shown(recordType));
        return false;
    }
    const std::uint8_t typeLen = ByteAt(record, kTypeLenOffset);
    if (typeLen > record.size()) {
        LogErrorFun("Parse NFC typeLen error : %02X", Shown(typeLen));
        return false;
    }
    bodyCount = ByteAt(record, kBodyCountOffset);
    if (bodyCount == 0 || bodyCount > record.size()) {
        LogErrorFun("Parse NFC bodyCount error : %02X", Shown(bodyCount));
        return false;
    }
    // A record that ends before the identifier code has none.
    if (record.size() <= kPrefixOffset || ByteAt(record, kPrefixOffset) != kHttpsPrefix) {
        LogErrorFun("Parse NFC record uri Type error");
        return false;
    }
    const std::string_view text = record.substr(kUriOffset, bodyCount - std::size_t{1});
    if (!m_uriHead) {
        return false;
    }
    // Refuses a type of more than one byte: the positions above are those of a one-byte type.
    if (!m_uriHead->Parse(record.substr(0, kUriHeadSize))) {
        return false;
    }
    m_uri = text;
    return true;
}

bool NfcData::ContentParse(std::string_view record) {
    if (record.empty() || ByteAt(record, kRecordTypeOffset) != kMimeRecord) {
        LogErrorFun("Parse NFC record type error");
        return false;
    }
    if (record.size() < kTypeOffset) {
        return false;
    }
    const std::uint8_t typeLen = ByteAt(record, kTypeLenOffset);
    const std::uint8_t bodyLen = ByteAt(record, kBodyCountOffset);
    const std::size_t headSize = typeLen + kTypeOffset;
    if (headSize > record.size()) {
        return false;
    }
    const std::string_view head = record.substr(0, headSize);
    const std::string_view body = record.substr(headSize, bodyLen);
    return m_nfcHead->Parse(head) && m_nfcBody->Parse(body);
}
