// Reads the compiled-in table (meanings.txt). A table that cannot be read is a fault of the build
// and ends the program; the tests see it.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "lab/explain/Meanings.h"

namespace lab::explain {

constexpr std::size_t kHeadSize = 4;  ///< of every format; the index needs it

/// Cuts the blanks at the end, also those that another program has written as \n or \r.
std::string_view TrimEnd(std::string_view text);

/// Adds the meanings and the error codes of the table.
void ReadMeaningsTable(std::vector<Meaning>& meanings, std::vector<SystemCode>& codes);

}  // namespace lab::explain
