#include "tagimage/NfcHead.h"

#include "tagimage/ImageGeometry.h"

std::string NfcHead::GetContent() const {
    std::string content;
    content.reserve(imageformat::kTypeOffset + m_type.size());
    content += static_cast<char>(m_recordType);
    content += static_cast<char>(m_typeLen);
    content += static_cast<char>(m_bodyCount);
    content += std::string_view(m_type);
    return content;
}
