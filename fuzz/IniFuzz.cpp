// Any bytes as the configuration file, to the reader of its values and to a message that is filled
// from it.
#include <sys/mman.h>
#include <tagport/NdefMessage.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "fuzz/Check.h"
#include "platform/hosted/Kernel.h"

namespace {

constexpr DWORD kCut = 16;

// A file in memory, and a path by which the reader can open it.
const int kFile = memfd_create("ini", 0);
const std::wstring kPath = L"/proc/self/fd/" + std::to_wstring(kFile);

void Write(const std::string& bytes) {
    Check(ftruncate(kFile, 0) == 0, "the file is emptied");
    Check(pwrite(kFile, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
          "the file is written");
}

std::wstring Read(const wchar_t* section, const wchar_t* key, DWORD size = 255) {
    std::wstring value(256, L'#');
    const DWORD length =
        GetPrivateProfileStringW(section, key, L"(none)", value.data(), size, kPath.c_str());
    Check(length < size && value[length] == L'\0', "a value ends within its buffer");
    Check(value.find_first_not_of(L'#', size) == std::wstring::npos,
          "nothing is written behind the buffer");
    return value.substr(0, length);
}

/// A directory whose configuration is the file.
class Directory {
  public:
    Directory() {
        std::filesystem::create_directories(m_path / "config");
        std::filesystem::create_symlink("/proc/self/fd/" + std::to_string(kFile),
                                        m_path / "config" / "NfcUri.ini");
        hosted::SetCurrentDirectoryForTests(m_path.wstring());
    }
    ~Directory() { std::filesystem::remove_all(m_path); }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

  private:
    const std::filesystem::path m_path =
        std::filesystem::temp_directory_path() / ("tagport-fuzz-" + std::to_string(getpid()));
};

bool IsPlain(const std::wstring& value) {
    return !value.empty() && std::all_of(value.begin(), value.end(),
                                         [](wchar_t unit) { return unit > 0 && unit < 0x80; });
}

/// The same file to a message, which takes both values or none.
void FillMessage() {
    constexpr std::uint8_t kOrvane = 5;
    const std::wstring orvane = Read(L"PC_URI", L"orvane_uri");
    const std::wstring velmo = Read(L"PC_URI", L"velmo_uri");
    NdefMessage message;
    message.Init('5');
    std::string url;
    std::uint8_t type = 0;
    message.GetUrl(url);
    message.GetPcType(type);
    const bool missing =
        orvane.empty() || velmo.empty() || orvane == L"(none)" || velmo == L"(none)";
    Check(type == 0 || type == kOrvane, "the type is the one that was asked for");
    Check((type == 0) == url.empty(), "a type has a URL");
    Check(!missing || type == 0, "both values or none");
    if (!missing && IsPlain(orvane)) {
        Check(url == std::string(orvane.begin(), orvane.end()), "the URL is the value");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const Directory directory;
    const std::string text = AsText(bytes, size);
    Write(text);
    FillMessage();
    const std::wstring found = Read(L"PC_URI", L"orvane_uri");
    Check(Read(L"PC_URI", L"orvane_uri", kCut) == found.substr(0, kCut - 1),
          "a short buffer gets the same value, cut");
    Check(Read(L" pc_uri", L"ORVANE_uri ") == found,
          "case of a name and blanks around it mean nothing");
    if (found != L"(none)" && text.substr(0, 2) != "\xFF\xFE") {
        Write(text + "\n[PC_URI]\norvane_uri=later\n");
        Check(Read(L"PC_URI", L"orvane_uri") == found,
              "the first match in the first section holds");
    }
    return 0;
}
