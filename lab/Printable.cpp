// Escapes bytes that a terminal would act on or that are not UTF-8.
#include "lab/Printable.h"

#include <cstdint>

#include "lab/Hex.h"
#include "platform/Utf8.h"

namespace lab {

namespace {

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
        const platform::Utf8Character character = platform::FirstOfUtf8(text);
        const std::size_t size = character.valid ? character.length : 1;
        if (!character.valid || (controls && IsControl(character.codePoint))) {
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
