// Parses an image. A tag may hold any bytes: every position is compared with the length before it
// is used, since the lengths come from the tag.
#include "diagnostics/Log.h"
#include "tagimage/NfcData.h"

using namespace imageformat;

namespace {

// An image with a higher TLV length is refused before its size is looked at.
constexpr std::uint8_t kMaxParsedLength = 253;
constexpr std::size_t kMinPayloadSize = kUriHeadSize;

unsigned Shown(std::uint8_t byte) {
    return byte;
}

}  // namespace

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
    if (record.size() < kMinPayloadSize) {
        return false;
    }
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
    if (record.size() > kMaxRecordSize) {
        return false;
    }
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
    if (!m_nfcHead || !m_nfcBody) {
        return false;
    }
    if (!m_nfcHead->Parse(head)) {
        return false;
    }
    return m_nfcBody->Parse(body);
}
