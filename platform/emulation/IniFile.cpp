// GetPrivateProfileStringW and GetCurrentDirectoryW. The only files that the layer reads.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string_view>

#include "platform/emulation/KernelState.h"

namespace emulation {

void SetCurrentDirectoryForTests(const std::wstring& directory) {
    const KernelLock lock;
    TheKernel().currentDirectory = directory;
}

namespace {

using View = std::wstring_view;

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kUtf16Mark = "\xFF\xFE";
constexpr View kBlanks = L" \t\v\f\x1A";  // the last one ended a text file once
constexpr std::size_t kMostIniBytes = std::size_t{1} << 20U;

std::wstring FromUtf16(std::string_view bytes) {
    std::wstring text;
    text.reserve(bytes.size() / 2);
    const auto unit = [&](std::size_t at) {
        return static_cast<std::uint32_t>(static_cast<std::uint8_t>(bytes[at]) |
                                          (static_cast<std::uint8_t>(bytes[at + 1]) << 8));
    };
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        std::uint32_t codePoint = unit(i);
        const std::uint32_t low = i + 3 < bytes.size() ? unit(i + 2) : 0;
        if ((codePoint & 0xFC00U) == 0xD800 && (low & 0xFC00U) == 0xDC00) {
            codePoint = 0x10000 + ((codePoint & 0x3FFU) << 10U) + (low & 0x3FFU);
            i += 2;
        }
        text += static_cast<wchar_t>(codePoint);
    }
    return text;
}

std::wstring Decode(std::string_view bytes) {
    if (bytes.substr(0, kUtf16Mark.size()) == kUtf16Mark) {
        return FromUtf16(bytes.substr(kUtf16Mark.size()));
    }
    if (bytes.substr(0, kUtf8Mark.size()) == kUtf8Mark) {
        bytes.remove_prefix(kUtf8Mark.size());
    }
    return FromUtf8(bytes);
}

/// Reads the whole file; the last-error code. Called without the kernel lock: a slow file system
/// must not stop the other threads. Only a regular file of at most kMostIniBytes is read: opening
/// or reading a FIFO or a device may block for ever, act on the device, or never come to an end.
DWORD ReadWhole(const WCHAR* path, std::string& bytes) {
    const std::string name = NativePath(path);
    struct stat status = {};
    if (stat(name.c_str(), &status) != 0) {
        return errno == ENOENT || errno == ENOTDIR ? ERROR_FILE_NOT_FOUND : ERROR_ACCESS_DENIED;
    }
    if (!S_ISREG(status.st_mode)) {
        return ERROR_ACCESS_DENIED;
    }
    // The path may lead to another file by now, so the open must not block, and the open file is
    // checked again.
    const int descriptor = open(name.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(fdopen(descriptor, "rb"),
                                                               &std::fclose);
    if (file == nullptr || fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        return ERROR_ACCESS_DENIED;
    }
    char block[16384];
    while (const std::size_t count = std::fread(block, 1, sizeof block, file.get())) {
        bytes.append(block, count);
        if (bytes.size() > kMostIniBytes) {
            bytes.clear();
            return ERROR_ACCESS_DENIED;
        }
    }
    return std::ferror(file.get()) != 0 ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
}

View Trim(View text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    return first == View::npos ? View()
                               : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

View WithoutQuotes(View value) {
    const bool quoted = value.size() >= 2 && value.front() == value.back() &&
                        (value.front() == L'"' || value.front() == L'\'');
    return quoted ? value.substr(1, value.size() - 2) : value;
}

bool SameName(View left, View right) {
    return left.size() == right.size() &&
           FoldCase(std::wstring(left)) == FoldCase(std::wstring(right));
}

/// Removes the next line from `text` and returns it.
View TakeLine(View& text) {
    const std::size_t end = text.find_first_of(L"\r\n");
    const View line = text.substr(0, end);
    const bool pair = end != View::npos && text.substr(end, 2) == L"\r\n";
    text.remove_prefix(end == View::npos ? text.size() : end + (pair ? 2 : 1));
    return line;
}

bool FindValue(View text, View section, View key, View& value) {
    bool inside = false;
    while (!text.empty()) {
        const View line = Trim(TakeLine(text));
        if (line.empty() || line.front() == L';') {
            continue;
        }
        const std::size_t close = line.front() == L'[' ? line.rfind(L']') : View::npos;
        if (close != View::npos) {
            if (inside) {
                return false;
            }
            inside = SameName(Trim(line.substr(1, close - 1)), section);
            continue;
        }
        const std::size_t equals = line.find(L'=');
        if (inside && equals != View::npos && SameName(Trim(line.substr(0, equals)), key)) {
            value = WithoutQuotes(Trim(line.substr(equals + 1)));
            return true;
        }
    }
    return false;
}

DWORD CopyOut(View text, WCHAR* buffer, DWORD size) {
    const std::size_t count = std::min<std::size_t>(text.size(), size - 1);
    std::copy_n(text.data(), count, buffer);
    buffer[count] = L'\0';
    return static_cast<DWORD>(count);
}

}  // namespace

}  // namespace emulation

DWORD GetPrivateProfileStringW(const WCHAR* section, const WCHAR* key, const WCHAR* defaultValue,
                               WCHAR* buffer, DWORD size, const WCHAR* path) {
    bool refused = false;
    {
        const emulation::Operation operation(emulation::Call::kConfiguration);
        refused = operation.Refused();
    }
    if (buffer == nullptr || size == 0) {
        return 0;
    }
    buffer[0] = L'\0';
    if (refused) {
        return 0;
    }
    if (section == nullptr || key == nullptr ||
        path == nullptr) {  // lists of names are not implemented
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::string bytes;
    const DWORD error = emulation::ReadWhole(path, bytes);
    const std::wstring text = error == ERROR_SUCCESS ? emulation::Decode(bytes) : std::wstring();
    emulation::View value;
    if (emulation::FindValue(text, emulation::Trim(section), emulation::Trim(key), value)) {
        return emulation::CopyOut(value.substr(0, value.find(L'\0')), buffer, size);
    }
    SetLastError(error == ERROR_SUCCESS ? ERROR_FILE_NOT_FOUND : error);
    return emulation::CopyOut(
        defaultValue == nullptr ? emulation::View() : emulation::View(defaultValue), buffer, size);
}

DWORD GetCurrentDirectoryW(DWORD length, WCHAR* buffer) {
    const emulation::Operation operation(emulation::Call::kConfiguration);
    if (operation.Refused()) {
        return 0;
    }
    std::wstring directory = emulation::TheKernel().currentDirectory;
    if (directory.empty()) {
        std::error_code failure;
        const std::string own = std::filesystem::current_path(failure).string();
        if (failure) {
            SetLastError(ERROR_FILE_NOT_FOUND);
            return 0;
        }
        directory = emulation::WidePath(own);
    }
    if (buffer == nullptr || length <= directory.size()) {
        return static_cast<DWORD>(directory.size() + 1);
    }
    return emulation::CopyOut(directory, buffer, length);
}
