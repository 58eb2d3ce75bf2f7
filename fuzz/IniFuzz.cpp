// Any bytes as the configuration file, to the reader of its values.
#include <sys/mman.h>
#include <unistd.h>

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string text = AsText(bytes, size);
    Write(text);
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
