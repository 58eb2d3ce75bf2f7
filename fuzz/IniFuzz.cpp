// Any bytes as the configuration file, to the reader of its values and to a message that is filled
// from it.
#include <sys/mman.h>
#include <tagport/NdefMessage.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "fuzz/Check.h"
#include "platform/emulation/Kernel.h"

namespace {

constexpr DWORD kCut = 16;

// A file in memory, since the fuzzer writes it thousands of times a second.
const std::filesystem::path kFile = "/proc/self/fd/" + std::to_string(memfd_create("ini", 0));
const std::filesystem::path kDirectory =
    std::filesystem::temp_directory_path() / ("tagport-fuzz-" + std::to_string(getpid()));

/// Makes the file the configuration of a directory, which becomes the current one.
bool Begin() {
    std::filesystem::create_directories(kDirectory / "config");
    std::filesystem::create_symlink(kFile, kDirectory / "config" / "NfcUri.ini");
    emulation::SetCurrentDirectoryForTests(kDirectory.wstring());
    return std::atexit([] { std::filesystem::remove_all(kDirectory); }) == 0;
}

void Write(const std::string& bytes) {
    Check(bool(std::ofstream(kFile, std::ios::binary) << bytes << std::flush),
          "the file is written");
}

std::wstring Read(const wchar_t* section, const wchar_t* key, DWORD size = 255) {
    std::wstring value(256, L'#');
    const DWORD length = GetPrivateProfileStringW(section, key, L"(none)", value.data(), size,
                                                  kFile.wstring().c_str());
    Check(length < size && value[length] == L'\0', "a value ends within its buffer");
    Check(value.find_first_not_of(L'#', size) == std::wstring::npos,
          "nothing is written after the end of the buffer");
    return value.substr(0, length);
}

bool IsPlain(const std::wstring& value) {
    return std::all_of(value.begin(), value.end(),
                       [](wchar_t unit) { return unit > 0 && unit < 0x80; });
}

/// A message takes both values of the file or none.
void FillMessage(const std::wstring& orvane, const std::wstring& velmo) {
    const auto missing = [](const std::wstring& value) {
        return value.empty() || value == L"(none)";
    };
    NdefMessage message;
    message.Init('5');
    std::string url;
    message.GetUrl(url);
    Check(url.empty() || (!missing(orvane) && !missing(velmo)), "both values or none");
    Check(url.empty() || !IsPlain(orvane) || url == std::string(orvane.begin(), orvane.end()),
          "the URL is the value");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const bool begun = Begin();
    Check(begun, "the directory is removed at the end");
    const std::string text = AsText(bytes, size);
    Write(text);
    const std::wstring found = Read(L"PC_URI", L"orvane_uri");
    FillMessage(found, Read(L"PC_URI", L"velmo_uri"));
    Check(Read(L"PC_URI", L"orvane_uri", kCut) == found.substr(0, kCut - 1),
          "a short buffer gets the same value, cut");
    Check(Read(L" pc_uri", L"ORVANE_uri ") == found,
          "case of a name and blanks around it mean nothing");
    if (found != L"(none)" && text.substr(0, 2) != "\xFF\xFE") {
        Write(text + "\n[PC_URI]\norvane_uri=later\n");
        Check(Read(L"PC_URI", L"orvane_uri") == found,
              "the first match in the first section counts");
    }
    return 0;
}
