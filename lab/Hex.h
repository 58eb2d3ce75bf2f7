// Bytes as hexadecimal text and back.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

using Bytes = std::vector<std::uint8_t>;

/// "0366FE", or with blanks "03 66 FE".
std::string ToHex(std::string_view bytes, bool blanks = false);
std::string ToHex(const Bytes& bytes, bool blanks = false);

/// Two digits to a byte. Blanks, ends of lines and "0x" in front of a byte are skipped. Throws
/// WrongCall as "ORIGIN:LINE:COLUMN: ..." with the character at fault.
std::string FromHex(std::string_view text, const std::string& origin);

/// A value of an option or of a script: exactly `count` bytes, else WrongCall beginning with
/// `what`.
std::string HexValue(const std::string& text, std::size_t count, const std::string& what);

/// The bytes of a counted string, and the other way round.
Bytes AsBytes(std::string_view text);
std::string_view AsText(const Bytes& bytes);

}  // namespace lab
