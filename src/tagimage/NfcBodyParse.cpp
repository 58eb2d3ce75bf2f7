// Parses the payload of the media-type record.
#include "diagnostics/Log.h"
#include "tagimage/NfcBody.h"

using namespace imageformat;

namespace {

// A bounded copy that the compiler reduces to moves, once the size has been compared: all other
// bounded copies are calls.
template <std::size_t Size>
bool Take(std::uint8_t (&field)[Size], std::string_view bytes, std::size_t offset) {
    return bytes.copy(reinterpret_cast<char*>(field), Size, offset) == Size;
}

}  // namespace

bool NfcBody::Parse(std::string_view bytes) {
    if (bytes.size() < kBodySize || bytes.size() > kMaxBodySize) {
        return false;
    }
    if (!Take(m_version, bytes, 0)) {
        LogErrorFun("Parse memcpy_s m_version fail");
        return false;
    }
    if (!Take(m_macAddr, bytes, kMacOffset)) {
        LogErrorFun("Parse memcpy_s m_macAddr fail");
        return false;
    }
    if (!Take(m_randomNumber, bytes, kNumberOffset)) {
        LogErrorFun("Parse memcpy_s m_randomNumber fail");
        return false;
    }
    if (!Take(m_pcModel, bytes, kModelOffset)) {
        LogErrorFun("Parse memcpy_s m_pcModel fail");
        return false;
    }
    return true;
}
