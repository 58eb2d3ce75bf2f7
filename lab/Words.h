// Small texts that messages are made of: lists, quotes, counts, a guess at a mistyped word, and
// what makes names, script lines and values safe to print, which may hold any bytes.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

std::string Quoted(std::string_view text);

/// "1 byte", "2 bytes".
std::string Counted(std::size_t count, const std::string& unit);

/// The parts of a text between separators; those that are empty too.
std::vector<std::string> Split(std::string_view text, char separator);

std::string Joined(const std::vector<std::string>& words, const std::string& between = ", ");

/// The names of a table's rows that `wanted` holds for.
template <class Table, class Wanted>
std::vector<std::string> NamesOf(const Table& table, Wanted wanted) {
    std::vector<std::string> names;
    for (const auto& row : table) {
        if (wanted(row)) {
            names.emplace_back(row.name);
        }
    }
    return names;
}
template <class Table>
std::vector<std::string> NamesOf(const Table& table) {
    return NamesOf(table, [](const auto& /*row*/) { return true; });
}

/// The number that the whole text is; nothing for any other text.
template <class Number>
std::optional<Number> WholeNumber(std::string_view text) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool isWhole = error == std::errc() && end == text.data() + text.size();
    return isWhole ? std::make_optional(value) : std::nullopt;
}

std::string_view WithoutByteOrderMark(std::string_view text);

/// Breaks a text at blanks into lines of `width` columns; in less than 30 it stays as it is. It
/// begins at the column `indent`, and its further lines at `hanging`.
std::string Wrapped(std::string_view text, std::size_t width, std::size_t indent,
                    std::size_t hanging);

/// Shows each control character, NUL included, and each byte that is not UTF-8 as \n, \r, \t or
/// \xNN. Everything else stays unchanged, so that a second pass changes nothing.
std::string Printable(std::string_view text);

/// Shows only the bytes that are not UTF-8 as \xNN.
std::string ValidUtf8(std::string_view text);

/// True when `holds` is true for one element, or more.
template <class Elements, class Holds>
bool Any(const Elements& elements, Holds holds) {
    return std::any_of(elements.begin(), elements.end(), holds);
}

/// "; did you mean ...?" when one of the allowed words looks like `typed`; empty otherwise.
std::string Suggestion(const std::vector<std::string>& allowed, const std::string& typed);

}  // namespace lab
