// Parses a record head.
#include "diagnostics/Log.h"
#include "tagimage/ImageGeometry.h"
#include "tagimage/NfcHead.h"

using namespace imageformat;

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
