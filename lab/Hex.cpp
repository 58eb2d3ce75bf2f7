// Hexadecimal text.
#include "lab/Hex.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "lab/Failure.h"
#include "lab/Words.h"

namespace lab {

namespace {

constexpr char kDigits[] = "0123456789ABCDEF";

std::optional<unsigned> Digit(char character) {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(&character, &character + 1, value, 16);
    return error == std::errc() && end != &character ? std::make_optional(value) : std::nullopt;
}

bool IsBlank(char character) {
    return character == ' ' || character == '\t' || character == '\r' || character == '\n';
}

std::string Shown(char character) {
    return character > 0x20 && character < 0x7F ? std::string("'") + character + "'"
                                                : "byte 0x" + ToHex({&character, 1});
}

[[noreturn]] void Fail(std::string_view text, std::size_t position, const std::string& origin,
                       const std::string& problem) {
    const std::string_view before = text.substr(0, position);
    const auto line = std::count(before.begin(), before.end(), '\n') + 1;
    const std::size_t column = position - (before.rfind('\n') + 1) + 1;  // npos + 1 is 0
    throw WrongCall(origin + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " +
                    problem);
}

}  // namespace

std::string ToHex(std::string_view bytes, bool blanks) {
    std::string text;
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        if (blanks && !text.empty()) {
            text += ' ';
        }
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0x0FU];
    }
    return text;
}

std::string ToHex(const Bytes& bytes, bool blanks) {
    return ToHex(AsText(bytes), blanks);
}

std::string FromHex(std::string_view text, const std::string& origin) {
    std::string bytes;
    std::size_t position = 0;
    while (position < text.size()) {
        if (IsBlank(text[position])) {
            ++position;
            continue;
        }
        const bool prefixed = text[position] == '0' && position + 1 < text.size() &&
                              (text[position + 1] == 'x' || text[position + 1] == 'X');
        position += prefixed ? 2 : 0;
        unsigned value = 0;
        for (int half = 0; half < 2; ++half, ++position) {
            if (position == text.size() || IsBlank(text[position])) {
                Fail(text, position - 1, origin,
                     Shown(text[position - 1]) + " has no second digit: a byte has two");
            }
            const std::optional<unsigned> digit = Digit(text[position]);
            if (!digit) {
                Fail(text, position, origin, Shown(text[position]) + " is not a hexadecimal digit");
            }
            value = value * 16 + *digit;
        }
        bytes += static_cast<char>(value);
    }
    return bytes;
}

std::string HexValue(const std::string& text, std::size_t count, const std::string& what) {
    std::string bytes = FromHex(text, what + " \"" + text + "\"");
    RefuseIf(bytes.size() != count, what + " \"" + text + "\": " + Counted(bytes.size(), "byte") +
                                        ": " + std::to_string(count) + " are needed");
    return bytes;
}

Bytes AsBytes(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

std::string_view AsText(const Bytes& bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace lab
