// Wide text, UTF-8 and file names. A wide character holds a whole code point here. A value that is
// no code point, or bytes that are not UTF-8, become the replacement character, except in paths.
#include <algorithm>
#include <cstring>
#include <cwchar>
#include <string_view>

#include "platform/Utf8.h"
#include "platform/emulation/KernelState.h"

namespace emulation {

namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;

constexpr wchar_t kEscapedByte = 0xDC00;  // plus the byte, see WidePath
constexpr wchar_t kLastEscaped = 0xDCFF;
constexpr wchar_t kEscapedBackslash = kEscapedByte + L'\\';

void AppendLetter(std::string& bytes, wchar_t letter) {
    const auto codePoint = static_cast<std::uint32_t>(letter);
    platform::AppendUtf8(bytes, platform::IsCodePoint(codePoint) ? codePoint : kReplacement);
}

}  // namespace

std::string ToUtf8(const wchar_t* text, std::size_t length) {
    std::string bytes;
    bytes.reserve(length);
    for (std::size_t i = 0; i < length; ++i) {
        AppendLetter(bytes, text[i]);
    }
    return bytes;
}

std::wstring FromUtf8(std::string_view bytes) {
    std::wstring text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const platform::Utf8Character first = platform::FirstOfUtf8(bytes);
        text += static_cast<wchar_t>(first.valid ? first.codePoint : kReplacement);
        bytes.remove_prefix(first.length);
    }
    return text;
}

std::wstring WidePath(const std::string& path) {
    std::wstring text;
    std::string_view rest = path;
    while (!rest.empty()) {
        const platform::Utf8Character first = platform::FirstOfUtf8(rest);
        const bool isText = first.valid && rest[0] != '\\';
        text += isText ? static_cast<wchar_t>(first.codePoint)
                       : static_cast<wchar_t>(kEscapedByte + static_cast<std::uint8_t>(rest[0]));
        rest.remove_prefix(isText ? first.length : 1);
    }
    return text;
}

std::string NativePath(std::wstring_view path) {
    std::string bytes;
    for (const wchar_t letter : path) {
        if (letter == L'\\') {
            bytes += '/';
        } else if (letter == kEscapedBackslash ||
                   (letter >= kEscapedByte + 0x80 && letter <= kLastEscaped)) {
            bytes += static_cast<char>(letter - kEscapedByte);
        } else {
            AppendLetter(bytes, letter);
        }
    }
    return bytes;
}

std::wstring FoldCase(const std::wstring& text) {
    std::wstring folded = text;
    for (wchar_t& letter : folded) {
        if (letter >= L'A' && letter <= L'Z') {
            letter = static_cast<wchar_t>(letter - L'A' + L'a');
        }
    }
    return folded;
}

}  // namespace emulation

int WideCharToMultiByte(UINT codePage, DWORD flags, const WCHAR* wide, int wideLength, char* narrow,
                        int narrowSize, const char* /*defaultChar*/, BOOL* usedDefault) {
    const emulation::Operation operation(emulation::Call::kConfiguration);
    if (operation.Refused()) {
        return 0;
    }
    if (codePage != CP_THREAD_ACP || flags != 0 || wide == nullptr || wideLength == 0 ||
        wideLength < -1 || narrowSize < 0 || (narrow == nullptr && narrowSize > 0)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    if (usedDefault != nullptr) {
        *usedDefault = FALSE;
    }
    const std::size_t length =
        wideLength < 0 ? std::wcslen(wide) + 1 : static_cast<std::size_t>(wideLength);
    const std::string bytes = emulation::ToUtf8(wide, length);
    if (narrowSize > 0) {
        if (bytes.size() > static_cast<std::size_t>(narrowSize)) {
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return 0;
        }
        std::memcpy(narrow, bytes.data(), bytes.size());
    }
    return static_cast<int>(bytes.size());
}
