// Cuts what a sink writes before a line into columns, at blanks, brackets and punctuation. Plain
// functions.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

#include "lab/explain/ClockText.h"

namespace lab::explain {

constexpr std::size_t kMostColumns = 24;

/// A prefix without its clock time, as columns. The views are parts of the prefix.
struct Columns {
    std::array<std::string_view, kMostColumns> values;
    std::size_t count = 0;
    std::optional<ClockText> clock;
    std::string_view clockText;
};

Columns ColumnsOf(std::string_view prefix);

}  // namespace lab::explain
