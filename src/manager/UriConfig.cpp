// Fills a message for a PC type from config\NfcUri.ini under the process's current directory.
#include <tagport/NdefMessage.h>

#include <cwchar>
#include <iterator>

#include "diagnostics/Log.h"
#include "manager/Limits.h"
#include "platform/BoundedMemory.h"
#include "platform/platform.h"
#include "routes/PcType.h"

namespace {

constexpr std::size_t kMaxPath = 260;         // wide characters, terminating zero included
constexpr std::size_t kMaxUriChars = 255;     // the same; a longer value arrives cut
constexpr std::size_t kSectionNameSize = 20;  // the same

constexpr const WCHAR* kSectionName = L"PC_URI";
constexpr const WCHAR* kOrvaneKey = L"orvane_uri";
constexpr const WCHAR* kVelmoKey = L"velmo_uri";
constexpr const WCHAR* kConfigFile = L"\\config\\NfcUri.ini";

// The fields that a PC type puts into a message.
struct PcKind {
    std::uint8_t type = 0;
    std::uint8_t model[4] = {};
    std::string url;
};

using UriBuffer = WCHAR[kMaxUriChars];

bool ReadKey(const WCHAR* section, const WCHAR* key, const std::wstring& path, UriBuffer& value) {
    const DWORD length = GetPrivateProfileStringW(
        section, key, L"", value, static_cast<DWORD>(std::size(value)), path.c_str());
    return length >= 1 && length <= std::size(value);
}

// 8-bit text up to the terminating zero; empty when it cannot be converted.
std::string Narrow(const UriBuffer& wide) {
    constexpr int kUpToZero = -1;
    const int size =
        WideCharToMultiByte(CP_THREAD_ACP, 0, wide, kUpToZero, nullptr, 0, nullptr, nullptr);
    if (size <= 0) {
        return {};
    }
    std::string narrow(static_cast<std::size_t>(size), '\0');
    if (WideCharToMultiByte(CP_THREAD_ACP, 0, wide, kUpToZero, narrow.data(), size, nullptr,
                            nullptr) <= 0) {
        return {};
    }
    narrow.resize(narrow.find('\0'));
    return narrow;
}

}  // namespace

void NdefMessage::Init(char type) {
    std::string orvaneUri;
    std::string velmoUri;
    if (!GetUriInfo(orvaneUri, velmoUri)) {
        LogErrorFun("NFC_ GetUriInfo fail");
        return;
    }
    PcKind kind;
    switch (type) {
        case '2':
            // One blank: a tag of this type shows no URI, but the register of its number is made
            // for a URI of one byte.
            kind = {kPcTypeBlank, {0x00, 0x00, 0x00, 0x00}, " "};
            break;
        case '5':
            kind = {kPcTypeOrvane, {0x00, 0x00, 0x05, 0x00}, orvaneUri};
            break;
        case '8':
            kind = {kPcTypeVelmo, {0x00, 0x00, 0x08, 0x00}, velmoUri};
            break;
        default:
            break;
    }
    platform::ClearField(m_macAddr);
    if (kind.url.empty() || kind.url.size() > kMaxUrlSize) {
        LogErrorFun("NdefMessage set information failed");
        return;
    }
    m_url = kind.url;
    platform::ClearField(m_randomNumber);
    platform::CopyField<sizeof(m_pcModel)>(m_pcModel, kind.model);
    m_pcType = kind.type;
}

bool NdefMessage::GetUriInfo(std::string& orvaneUri, std::string& velmoUri) {
    WCHAR directory[kMaxPath] = {};
    const DWORD length = GetCurrentDirectoryW(static_cast<DWORD>(std::size(directory)), directory);
    if (length == 0) {
        LogErrorFun("NFC - GetCurrentDirectoryW failed (%d).", static_cast<int>(GetLastError()));
        return false;
    }
    if (length > std::size(directory)) {
        LogErrorFun("NFC - GetCurrentDirectoryW:buffer too small, need %d characters.",
                    static_cast<int>(length));
        return false;
    }
    const std::wstring path = std::wstring(directory) + kConfigFile;
    LogWarnFun("NFC_ get confFile: NfcUri.ini");

    WCHAR section[kSectionNameSize] = {};
    if (std::swprintf(section, std::size(section), L"%ls", kSectionName) < 0) {
        LogErrorFun("swprintf_s failed");
        return false;
    }
    UriBuffer orvane = {};
    if (!ReadKey(section, kOrvaneKey, path, orvane)) {
        return false;
    }
    UriBuffer velmo = {};
    if (!ReadKey(section, kVelmoKey, path, velmo)) {
        return false;
    }
    orvaneUri = Narrow(orvane);
    velmoUri = Narrow(velmo);
    return true;
}
