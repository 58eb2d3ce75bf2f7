// Cuts the bytes of a log into lines, and finds the library's lines among them. Keeps a few
// kilobytes, however long a line is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "lab/explain/Meanings.h"

namespace lab::explain {

/// A line of the library in a log. Valid during the call.
struct LogLine {
    std::uint64_t number = 0;  ///< from 1
    std::string_view prefix;   ///< what the host's sink wrote before the library's text
    Match match;
    bool isError = false;
};

class LogLines {
  public:
    using Sink = std::function<void(const LogLine& line)>;
    explicit LogLines(Sink sink) : m_sink(std::move(sink)) {}

    /// Takes the next bytes. UTF-8, or UTF-16 when a byte order mark or the first characters say
    /// so. Lines end with LF or CR LF; one may contain several of the library's.
    void Take(std::string_view bytes);
    /// Takes the last line, which may have no end.
    void End();

    std::uint64_t Lines() const { return m_number; }
    /// Texts of the library that were recognised.
    std::uint64_t Records() const { return m_records; }
    /// Lines with such a text, or with the first part of one that goes over two lines.
    std::uint64_t LibraryLines() const { return m_lines; }
    /// Lines that end like the library's, without a text that is in the table of meanings.
    std::uint64_t UnknownLines() const { return m_unknown; }
    /// All others.
    std::uint64_t OtherLines() const { return m_number - m_lines - m_unknown; }

    /// Bytes of a line that are looked at before each text of the library.
    static constexpr std::size_t kLongestPart = 4096;

  private:
    enum class Encoding { kUnknown, kUtf8, kUtf16Little, kUtf16Big };

    void ChooseEncoding();
    void TakeUtf16(std::string_view bytes);
    void TakeText(std::string_view text);
    std::size_t Scan(std::string_view line);
    void EndLine(std::string_view rest);
    bool Recognise(std::string_view part, bool isError);

    Sink m_sink;
    Encoding m_encoding = Encoding::kUnknown;
    std::string m_beginning;  // until the encoding is known
    std::string m_rest;       // of a line whose end has not come
    std::string m_before;     // the end of the line before, when it had no end of the library's
    std::string m_decoded;
    std::uint32_t m_half = 0;  // UTF-16: an odd byte, and the first half of a pair
    bool m_hasHalf = false;
    std::uint32_t m_highSurrogate = 0;
    bool m_isLibrarys = false;  // of the current line
    bool m_hasMarker = false;
    std::uint64_t m_number = 0;  // lines that have ended
    std::uint64_t m_lines = 0;
    std::uint64_t m_records = 0;
    std::uint64_t m_unknown = 0;
};

}  // namespace lab::explain
