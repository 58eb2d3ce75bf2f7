// The one decoder of UTF-8, and the one encoder. Includes the standard library alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

constexpr std::uint32_t kLastCodePoint = 0x10FFFF;

constexpr bool IsCodePoint(std::uint32_t value) {
    return value <= kLastCodePoint && (value < 0xD800 || value > 0xDFFF);
}

// Indexed by the number of bytes after the first: the first byte's mark, and the smallest code
// point that needs so many bytes.
constexpr std::uint32_t kUtf8HeadMark[] = {0x00, 0xC0, 0xE0, 0xF0};
constexpr std::uint32_t kUtf8Smallest[] = {0x00, 0x80, 0x800, 0x10000};
constexpr unsigned kUtf8TailBits = 6;  // of a code point, in each byte after the first
constexpr std::uint32_t kUtf8TailMask = 0x3F;
constexpr std::uint32_t kUtf8TailMark = 0x80;

/// The bytes of one code point, or of what should have been one.
struct Utf8Character {
    std::uint32_t codePoint = 0;
    std::size_t length = 0;
    bool valid = true;
};

/// The first character of a text that is not empty.
constexpr Utf8Character FirstOfUtf8(std::string_view bytes) {
    const auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(bytes[at]); };
    const std::uint32_t head = byte(0);
    if (head < kUtf8TailMark) {
        return {head, 1, true};
    }
    const unsigned tail = head >= kUtf8HeadMark[3] ? 3U : head >= kUtf8HeadMark[2] ? 2U : 1U;
    std::uint32_t codePoint = head - (head < kUtf8HeadMark[tail] ? head : kUtf8HeadMark[tail]);
    std::size_t length = 1;
    while (length <= tail && length < bytes.size() &&
           (byte(length) & ~kUtf8TailMask) == kUtf8TailMark) {
        codePoint = (codePoint << kUtf8TailBits) | (byte(length) & kUtf8TailMask);
        ++length;
    }
    return {codePoint, length,
            head >= kUtf8HeadMark[1] && length == tail + 1 && codePoint >= kUtf8Smallest[tail] &&
                IsCodePoint(codePoint)};
}

inline void AppendUtf8(std::string& bytes, std::uint32_t codePoint) {
    unsigned tail = 0;
    while (tail < 3 && codePoint >= kUtf8Smallest[tail + 1]) {
        ++tail;
    }
    bytes += static_cast<char>(kUtf8HeadMark[tail] | (codePoint >> (kUtf8TailBits * tail)));
    while (tail > 0) {
        --tail;
        bytes += static_cast<char>(kUtf8TailMark |
                                   ((codePoint >> (kUtf8TailBits * tail)) & kUtf8TailMask));
    }
}

}  // namespace platform
