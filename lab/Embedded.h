// Files that are parts of the program. CMake makes Embedded.cpp of them with embed.py.
#pragma once

#include <string>
#include <string_view>

namespace lab {

/// "report.html": the page of a report without its data, with @FACTS@ and @OBJECTS@ in their
/// places; or "completion.bash", "completion.zsh", "completion.fish".
std::string Embedded(std::string_view name);

}  // namespace lab
