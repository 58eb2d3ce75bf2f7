#include "tagimage/NfcHead.h"

#include "diagnostics/Log.h"
#include "tagimage/ImageGeometry.h"

using namespace imageformat;

std::string NfcHead::GetContent() const {
    std::string bytes;
    bytes.reserve(kTypeOffset + m_type.size());
    bytes += static_cast<char>(m_recordType);
    bytes += static_cast<char>(m_typeLen);
    bytes += static_cast<char>(m_bodyCount);
    bytes += std::string_view(m_type);
    return bytes;
}

bool NfcHead::Parse(std::string_view bytes) {
    LogWarnFun("NfcHead parse begin");
    if (bytes.size() <= kTypeOffset) {
        LogErrorFun("NfcHead parse failed 1");
        return false;
    }
    const std::uint8_t typeLen = ByteAt(bytes, kTypeLenOffset);
    if (bytes.size() != typeLen + kTypeOffset) {
        LogErrorFun("NfcHead parse failed 2");
        return false;
    }
    m_recordType = ByteAt(bytes, kRecordTypeOffset);
    m_bodyCount = ByteAt(bytes, kBodyCountOffset);
    m_typeLen = typeLen;
    m_type = bytes.substr(kTypeOffset, typeLen);
    return true;
}
