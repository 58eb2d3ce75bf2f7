// Converts bytes to hexadecimal text and back. Plain functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

using Bytes = std::vector<std::uint8_t>;

/// "0366FE", or "03 66 FE" with blanks.
std::string ToHex(std::string_view bytes, bool blanks = false);
std::string ToHex(const Bytes& bytes, bool blanks = false);

/// Each byte has two digits. Blanks, ends of lines and "0x" before a byte are skipped. Throws
/// WrongCall as "ORIGIN:LINE:COLUMN: ..." with the wrong character.
std::string FromHex(std::string_view text, const std::string& origin);

/// A value of an option or of a script, exactly `count` bytes. Otherwise throws WrongCall; the text
/// begins with `what`.
std::string HexValue(const std::string& text, std::size_t count, const std::string& what);

/// The same bytes as the other type.
Bytes AsBytes(std::string_view text);
std::string_view AsText(const Bytes& bytes);
template <std::size_t Size>
std::string_view AsText(const std::uint8_t (&bytes)[Size]) {
    return {reinterpret_cast<const char*>(bytes), Size};
}

/// Calls a setter of the library, which takes an array, with so many bytes.
template <class Object, class Result, std::size_t Size>
void SetBytes(Object& object, Result (Object::*setter)(const std::uint8_t (&)[Size]),
              std::string_view bytes) {
    std::uint8_t field[Size];
    std::memcpy(field, bytes.data(), Size);
    (object.*setter)(field);
}

}  // namespace lab
