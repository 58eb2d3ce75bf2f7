// Escapes bytes that a terminal would act on or that are not UTF-8.
#include "lab/Printable.h"

#include <algorithm>
#include <cstdint>

#include "lab/Hex.h"

namespace lab {

namespace {

constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};  // by length: no overlong form
constexpr std::uint32_t kLargest = 0x10FFFF;
constexpr std::uint32_t kFirstSurrogate = 0xD800;
constexpr std::uint32_t kLastSurrogate = 0xDFFF;

struct Character {
    std::size_t size = 0;  // in bytes; 0: the text does not begin with a UTF-8 character
    std::uint32_t code = 0;
};

Character FirstCharacter(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 0x80) {
        return {1, first};
    }
    const std::size_t size = first >= 0xF0 ? 4 : (first >= 0xE0 ? 3 : 2);
    if (first < 0xC0 || first >= 0xF8 || size > text.size()) {
        return {};
    }
    std::uint32_t code = first & (0x7FU >> size);
    for (const char character : text.substr(1, size - 1)) {
        const auto byte = static_cast<unsigned char>(character);
        if ((byte & 0xC0U) != 0x80) {
            return {};
        }
        code = code * 64 + (byte & 0x3FU);
    }
    if (code < kSmallest[size] || code > kLargest ||
        (code >= kFirstSurrogate && code <= kLastSurrogate)) {
        return {};
    }
    return {size, code};
}

bool IsControl(std::uint32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0);
}

std::string EscapedByte(char byte) {
    switch (byte) {
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        default:
            return "\\x" + ToHex(std::string_view(&byte, 1));
    }
}

std::string Escape(std::string_view text, bool controls) {
    std::string shown;
    while (!text.empty()) {
        const Character character = FirstCharacter(text);
        const std::size_t size = std::max<std::size_t>(character.size, 1);
        if (character.size == 0 || (controls && IsControl(character.code))) {
            for (const char byte : text.substr(0, size)) {
                shown += EscapedByte(byte);
            }
        } else {
            shown += text.substr(0, size);
        }
        text.remove_prefix(size);
    }
    return shown;
}

}  // namespace

std::string Printable(std::string_view text) {
    return Escape(text, true);
}

std::string ValidUtf8(std::string_view text) {
    return Escape(text, false);
}

}  // namespace lab
