// Makes text safe to print: names, script lines and values may hold any bytes. Plain functions.
#pragma once

#include <string>
#include <string_view>

namespace lab {

/// Shows each control character, NUL included, and each byte that is not UTF-8 as \n, \r, \t or
/// \xNN. Everything else stays unchanged, so that a second pass changes nothing.
std::string Printable(std::string_view text);

/// Shows only the bytes that are not UTF-8 as \xNN.
std::string ValidUtf8(std::string_view text);

}  // namespace lab
