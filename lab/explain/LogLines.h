// Cuts the bytes of a log into lines, and finds the library's lines among them. Keeps a few
// kilobytes, however long a line is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "lab/explain/Meanings.h"

namespace lab::explain {

/// A line of the library in a log.
struct LogLine {
    std::string_view file;     ///< its name, which outlives the line
    std::uint64_t number = 0;  ///< from 1
    std::string prefix;        ///< what the host's sink wrote before the library's text
    Match match;
    bool isError = false;
};

/// How many lines there are.
struct LineCounts {
    std::uint64_t lines = 0;
    std::uint64_t library = 0;  ///< with a text of the library, or the first part of one
    std::uint64_t unknown = 0;  ///< end like the library's, and are not in the table of meanings
    std::uint64_t records = 0;  ///< texts of the library

    std::uint64_t Others() const { return lines - library - unknown; }
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
    std::uint32_t m_highSurrogate = 0;
    bool m_isLineStart = true;
    std::uint64_t m_number = 1;
    std::string m_line;    // what is decoded of the current line, behind the library's last text
    std::string m_before;  // the end of the line before, when it had no end of the library's
    bool m_isLibrarys = false;
    bool m_hasMarker = false;
};

}  // namespace lab::explain
