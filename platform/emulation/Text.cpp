// Wide text, UTF-8 and file names. A wide character holds a whole code point here. A value that is
// no code point, or bytes that are not UTF-8, become the replacement character, except in paths.
#include <algorithm>
#include <cstring>
#include <cwchar>
#include <string_view>

#include "platform/emulation/KernelState.h"

namespace emulation {

namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;
constexpr std::uint32_t kLastCodePoint = 0x10FFFF;
constexpr unsigned kBitsPerByte = 6;  // of a code point, in each byte after the first
constexpr std::uint32_t kTailMask = 0x3F;
constexpr std::uint32_t kTailMark = 0x80;

bool IsCodePoint(std::uint32_t value) {
    return value <= kLastCodePoint && (value < 0xD800 || value > 0xDFFF);
}

// Indexed by the number of bytes after the first: the first byte's mark, and the smallest code
// point that needs so many bytes.
constexpr std::uint32_t kHeadMark[] = {0x00, 0xC0, 0xE0, 0xF0};
constexpr std::uint32_t kSmallest[] = {0x00, 0x80, 0x800, 0x10000};

unsigned TailLength(std::uint32_t codePoint) {
    unsigned tail = 0;
    while (tail < 3 && codePoint >= kSmallest[tail + 1]) {
        ++tail;
    }
    return tail;
}

constexpr wchar_t kEscapedByte = 0xDC00;  // plus the byte, see WidePath
constexpr wchar_t kLastEscaped = 0xDCFF;
constexpr wchar_t kEscapedBackslash = kEscapedByte + L'\\';

void AppendUtf8(std::string& bytes, wchar_t letter) {
    auto codePoint = static_cast<std::uint32_t>(letter);
    if (!IsCodePoint(codePoint)) {
        codePoint = kReplacement;
    }
    unsigned tail = TailLength(codePoint);
    bytes += static_cast<char>(kHeadMark[tail] | (codePoint >> (kBitsPerByte * tail)));
    while (tail > 0) {
        --tail;
        bytes += static_cast<char>(kTailMark | ((codePoint >> (kBitsPerByte * tail)) & kTailMask));
    }
}

/// The bytes of one code point, or of what should have been one.
struct Decoded {
    std::uint32_t codePoint = 0;
    std::size_t length = 0;
    bool valid = true;
};

Decoded DecodeFirst(std::string_view bytes) {
    const auto head = static_cast<std::uint8_t>(bytes[0]);
    if (head < kTailMark) {
        return {head, 1, true};
    }
    const unsigned tail = head >= kHeadMark[3] ? 3U : head >= kHeadMark[2] ? 2U : 1U;
    std::uint32_t codePoint = head - std::min<std::uint32_t>(head, kHeadMark[tail]);
    std::size_t length = 1;
    while (length <= tail && length < bytes.size() &&
           (static_cast<std::uint8_t>(bytes[length]) & ~kTailMask) == kTailMark) {
        codePoint =
            (codePoint << kBitsPerByte) | (static_cast<std::uint8_t>(bytes[length]) & kTailMask);
        ++length;
    }
    const bool valid = head >= kHeadMark[1] && length == tail + 1 && codePoint >= kSmallest[tail] &&
                       IsCodePoint(codePoint);
    return {codePoint, length, valid};
}

}  // namespace

std::string ToUtf8(const wchar_t* text, std::size_t length) {
    std::string bytes;
    bytes.reserve(length);
    for (std::size_t i = 0; i < length; ++i) {
        AppendUtf8(bytes, text[i]);
    }
    return bytes;
}

std::wstring FromUtf8(std::string_view bytes) {
    std::wstring text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const Decoded first = DecodeFirst(bytes);
        text += static_cast<wchar_t>(first.valid ? first.codePoint : kReplacement);
        bytes.remove_prefix(first.length);
    }
    return text;
}

std::wstring WidePath(const std::string& path) {
    std::wstring text;
    std::string_view rest = path;
    while (!rest.empty()) {
        const Decoded first = DecodeFirst(rest);
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
            AppendUtf8(bytes, letter);
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

int WideCharToMultiByte(UINT codePage, DWORD /*flags*/, const WCHAR* wide, int wideLength,
                        char* narrow, int narrowSize, const char* /*defaultChar*/,
                        BOOL* usedDefault) {
    const emulation::Operation operation(emulation::Call::kConfiguration);
    if (operation.Refused()) {
        return 0;
    }
    if (codePage != CP_THREAD_ACP || wide == nullptr || wideLength == 0 || wideLength < -1 ||
        narrowSize < 0 || (narrow == nullptr && narrowSize > 0)) {
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
