// Any bytes as the configuration file, to the reader of its values.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cwchar>

#include "fuzz/Check.h"
#include "platform/hosted/Kernel.h"

namespace {

using Value = std::array<WCHAR, 256>;
constexpr DWORD kCut = 16;

/// A file in memory, behind a path that the reader can open.
class File {
  public:
    File() : m_path(L"/proc/self/fd/" + std::to_wstring(m_file)) {}
    void Write(const std::string& bytes) {
        Check(ftruncate(m_file, 0) == 0, "the file is emptied");
        Check(pwrite(m_file, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
              "the file is written");
    }
    DWORD Read(const wchar_t* section, const wchar_t* key, Value& value, DWORD size) const {
        value.fill(L'#');
        const DWORD length =
            GetPrivateProfileStringW(section, key, L"(none)", value.data(), size, m_path.c_str());
        Check(length < size && value[length] == L'\0', "a value ends within its buffer");
        Check(std::all_of(value.begin() + size, value.end(), [](WCHAR c) { return c == L'#'; }),
              "nothing is written behind the buffer");
        return length;
    }

  private:
    const int m_file = memfd_create("ini", 0);
    std::wstring m_path;
};

std::wstring Text(const Value& value, DWORD length) {
    return std::wstring(value.data(), length);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static File file;
    const std::string text = AsText(bytes, size);
    file.Write(text);
    Value value;
    const std::wstring found = Text(value, file.Read(L"PC_URI", L"orvane_uri", value, 255));
    const std::wstring cut = Text(value, file.Read(L"PC_URI", L"orvane_uri", value, kCut));
    Check(cut == found.substr(0, kCut - 1), "a short buffer gets the same value, cut");
    const std::wstring folded = Text(value, file.Read(L" pc_uri", L"ORVANE_uri ", value, 255));
    Check(folded == found, "case of a name and blanks around it mean nothing");
    if (found != L"(none)" && text.substr(0, 2) != "\xFF\xFE") {
        file.Write(text + "\n[PC_URI]\norvane_uri=later\n");
        const std::wstring first = Text(value, file.Read(L"PC_URI", L"orvane_uri", value, 255));
        Check(first == found, "the first match in the first section holds");
    }
    return 0;
}
