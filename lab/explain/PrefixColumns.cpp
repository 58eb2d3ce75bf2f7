#include "lab/explain/PrefixColumns.h"

#include <algorithm>

namespace lab::explain {

namespace {

constexpr std::string_view kSeparators = " \t\x1B[](){}<>|,;:=\"'#/\\";
constexpr std::string_view kColour = "\x1B[";  // begins the code of a terminal's colour

bool IsDecimal(std::string_view text) {
    return text.find_first_not_of("0123456789") == std::string_view::npos;
}

/// Finds the numbers of lines and columns in a position of the sink's source, such as x.cpp:100:7,
/// x.cpp(100) or Sink::Write:100. They look like a process.
class SourcePosition {
  public:
    /// True when `word` is such a number. `between` is what separates it from the word before.
    bool Contains(std::string_view word, std::string_view between) {
        const bool isNear = between.size() == 1 || between == ", ";
        const bool isNumber = m_next != Next::kNothing && IsDecimal(word) && isNear &&
                              (m_next == Next::kLine || between == ":");
        if (isNumber) {
            m_next = m_next == Next::kLine ? Next::kColumn : Next::kNothing;
        } else if (m_next != Next::kLine || word != "line") {
            m_next = IsSource(word, between) ? Next::kLine : Next::kNothing;
        }
        return isNumber;
    }

  private:
    enum class Next { kNothing, kLine, kColumn };

    static bool IsSource(std::string_view word, std::string_view between) {
        constexpr std::array<std::string_view, 14> kEndings{".cpp", ".cc",   ".cxx", ".c",  ".hpp",
                                                            ".h",   ".inl",  ".cs",  ".rs", ".go",
                                                            ".py",  ".java", ".kt",  ".js"};
        return between == "::" ||
               std::any_of(kEndings.begin(), kEndings.end(), [word](std::string_view ending) {
                   return word.size() > ending.size() &&
                          word.substr(word.size() - ending.size()) == ending;
               });
    }

    Next m_next = Next::kNothing;
};

void Split(std::string_view text, Columns& columns) {
    SourcePosition position;
    std::size_t at = 0;
    while (columns.count < kMostColumns) {
        const std::size_t before = at;
        at = text.find_first_not_of(kSeparators, at);
        if (at == std::string_view::npos) {
            return;
        }
        const bool isQuoted = at > 0 && text[at - 1] == '"';
        std::size_t end = isQuoted ? text.find('"', at) : text.find_first_of(kSeparators, at);
        end = std::min(end, text.size());
        if (at >= kColour.size() && text.substr(at - kColour.size(), kColour.size()) == kColour) {
            at = end;
            continue;
        }
        const std::string_view word = text.substr(at, end - at);
        if (!position.Contains(word, text.substr(before, at - before))) {
            columns.values[columns.count++] = word;
        }
        at = end;
    }
}

}  // namespace

Columns ColumnsOf(std::string_view prefix) {
    Columns columns;
    columns.clock = FindClock(prefix);
    if (columns.clock) {
        columns.clockText =
            prefix.substr(columns.clock->begin, columns.clock->end - columns.clock->begin);
        Split(prefix.substr(0, columns.clock->begin), columns);
        Split(prefix.substr(columns.clock->end), columns);
    } else {
        Split(prefix, columns);
    }
    return columns;
}

}  // namespace lab::explain
