// Cuts the bytes of a log into lines, finds the library's lines among them, and says what they
// mean. Keeps a few kilobytes, however long a line is. The tables of the meanings are made of
// meanings.txt by scripts/log-reference when the project is built; they are constant.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "lab/explain/Names.h"  // made as well: the enumerations, and the sizes of the tables

namespace lab::explain {

/// What to do, by where the tag is: not known, a chip that is in no keyboard, a keyboard.
using Advice = std::array<std::string_view, 3>;

struct Meaning {
    std::string_view format;  ///< without the blanks at its end
    Role role;
    ThreadKind thread;    ///< the only kind that writes it; kAny for lines of several
    unsigned traits;      ///< of a route or a chip
    unsigned code;        ///< the argument that is a system error code, from 1; 0: none
    bool isDevice;        ///< the code is a device's: the code's own advice comes first
    Condition condition;  ///< when it holds
    std::uint32_t operand;
    unsigned variants;  ///< meanings in front of this one that hold under a condition
    std::string_view says;
    std::string_view means;
    Advice advice;
};
extern const std::array<Meaning, kMeaningCount> kMeanings;

/// An error code of the system.
struct SystemCode {
    std::uint32_t code;
    std::string_view text;
    Advice advice;  ///< for a device that reports it; empty: that depends on the line
};
extern const std::array<SystemCode, kSystemCodeCount> kSystemCodes;

/// A line of the library inside a line of a log.
struct Match {
    const Meaning* meaning = nullptr;  ///< the one without a condition
    std::size_t begin = 0;             ///< where the library's text begins
    std::string text;
    std::optional<std::uint32_t> code;  ///< the system error code
};

/// Recognises the library's text at the end of `part`, which may have anything before it and blanks
/// after it. The earliest place counts: one text can be the end of another.
std::optional<Match> FindMeaning(std::string_view part);

/// Null when the table does not have the code.
const SystemCode* FindCode(std::optional<std::uint32_t> code);

/// A line of the library in a log.
struct LogLine {
    std::string_view file;     ///< its name, which outlives the line
    std::uint64_t number = 0;  ///< from 1
    std::string prefix;        ///< what the host's sink wrote before it, without colours
    Match match;
    bool isError = false;
};

/// How many lines there are.
struct LineCounts {
    std::uint64_t lines = 0;
    std::uint64_t library = 0;  ///< with a text of the library, or the first part of one
    std::uint64_t unknown = 0;  ///< end like the library's, and are not in the table of meanings
    std::uint64_t records = 0;  ///< texts of the library
};

class LogLines {
  public:
    using Sink = std::function<void(const LogLine& line)>;
    /// Adds to `counts`.
    LogLines(std::string_view file, Sink sink, LineCounts& counts)
        : m_file(file), m_sink(std::move(sink)), m_counts(counts) {}

    /// Takes the next bytes: UTF-8 or UTF-16. Each line may have another encoding than the one
    /// before, as where two programs have written to one file. Lines end with LF or CR LF; one may
    /// contain several of the library's.
    void Take(std::string_view bytes, bool isEnd = false);
    /// Takes the last line, which may have no end.
    void End();

    /// Bytes of a line that are looked at before each text of the library.
    static constexpr std::size_t kLongestPart = 4096;

  private:
    enum class Encoding : std::uint8_t { kUtf8, kUtf16Little, kUtf16Big };

    std::size_t ChooseEncoding(std::string_view line);
    std::size_t Decode(std::string_view bytes);
    void Scan();
    bool Recognise(std::string_view part, bool isError);
    void EndLine();

    std::string_view m_file;
    Sink m_sink;
    LineCounts& m_counts;
    Encoding m_encoding = Encoding::kUtf8;
    std::string m_bytes;  // too few to know their meaning
    bool m_isLineStart = true;
    std::uint64_t m_number = 1;
    std::string m_line;    // what is decoded of the current line, after the library's last text
    std::string m_before;  // the end of the line before, when it had no end of the library's
    bool m_isLibrarys = false;
    bool m_hasMarker = false;
};

}  // namespace lab::explain
