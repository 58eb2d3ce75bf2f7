#include "lab/explain/LogLines.h"

#include <algorithm>
#include <array>

namespace lab::explain {

namespace {

// What the library writes after each text, and whether that is an error.
constexpr std::array<std::pair<std::string_view, bool>, 3> kMarkers{
    {{"(LogWarnFun)", false}, {"(LogErrorFun)", true}, {"(NfcProxy::BtConnect)", true}}};

constexpr std::size_t kShowsEncoding = 8;  // bytes at the beginning of a line
constexpr std::size_t kKeptBefore = 1024;
constexpr std::size_t kLongestPrefix = 512;  // of a longer one, this much before the text
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

void AppendUtf8(std::string& text, std::uint32_t code) {
    const auto byte = [&](std::uint32_t value) { text += static_cast<char>(value); };
    if (code < 0x80) {
        byte(code);
        return;
    }
    const unsigned more = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
    byte((0xFFU << (7 - more) & 0xFFU) | code >> 6 * more);
    for (unsigned left = more; left-- > 0;) {
        byte(0x80 | (code >> 6 * left & 0x3FU));
    }
}

std::string_view EndOf(std::string_view text, std::size_t most) {
    return text.substr(text.size() - std::min(text.size(), most));
}

}  // namespace

void LogLines::Take(std::string_view bytes) {
    m_bytes += bytes;
    std::string_view rest = m_bytes;
    while (TakePart(rest, false)) {
    }
    m_bytes.erase(0, m_bytes.size() - rest.size());
}

void LogLines::End() {
    std::string_view rest = m_bytes;
    while (TakePart(rest, true)) {
    }
    m_bytes.clear();
    if (!m_line.empty() || m_hasMarker) {
        EndLine(std::string_view(m_line).substr(Scan(m_line)));
    }
}

// A line, or the beginning of a long one. False when there are too few bytes.
bool LogLines::TakePart(std::string_view& bytes, bool isEnd) {
    if (m_isLineStart && (bytes.size() >= kShowsEncoding || isEnd)) {
        bytes.remove_prefix(ChooseEncoding(bytes));
        m_isLineStart = false;
    }
    const std::size_t unit = m_encoding == Encoding::kUtf8 ? 1 : 2;
    if (m_isLineStart || bytes.size() < unit) {
        return false;
    }
    std::size_t end = bytes.find('\n');
    while (unit > 1 && end != std::string_view::npos &&
           UnitAt(bytes, end & ~std::size_t{1}) != '\n') {
        end = bytes.find('\n', end + 1);
    }
    const bool isWhole = end != std::string_view::npos && (end | (unit - 1)) < bytes.size();
    if (!isWhole && bytes.size() < 2 * kLongestPart && !isEnd) {
        return false;
    }
    const std::size_t size = isWhole ? end & ~(unit - 1) : bytes.size() & ~(unit - 1);
    if (unit == 1) {
        m_line += bytes.substr(0, size);
    } else {
        Decode(bytes.substr(0, size));
    }
    bytes.remove_prefix(size + (isWhole ? unit : 0));
    const std::size_t used = Scan(m_line);
    if (isWhole) {
        EndLine(std::string_view(m_line).substr(used));
        m_line.clear();
        m_highSurrogate = 0;
        m_isLineStart = true;
    } else {
        m_line.erase(0, std::max(used, m_line.size() - std::min(m_line.size(), kLongestPart)));
    }
    return true;
}

/// Of a line that begins like this. Returns the size of a byte order mark.
std::size_t LogLines::ChooseEncoding(std::string_view line) {
    if (line.substr(0, kUtf8Mark.size()) == kUtf8Mark) {
        m_encoding = Encoding::kUtf8;
        return kUtf8Mark.size();
    }
    const std::string_view pair = line.substr(0, 2);
    if (pair == "\xFF\xFE" || pair == "\xFE\xFF") {
        m_encoding = pair[0] == '\xFF' ? Encoding::kUtf16Little : Encoding::kUtf16Big;
        return pair.size();
    }
    // Without a mark: Latin text has a zero in every second byte, and no other text has one.
    const auto isLatin = [line](std::size_t zero) {
        const std::size_t size = std::min<std::size_t>(line.size(), 4) & ~std::size_t{1};
        for (std::size_t at = 0; at < size; at += 2) {
            if (line[at + zero] != '\0' || line[at + 1 - zero] == '\0') {
                return false;
            }
        }
        return size > 0;
    };
    if (isLatin(1) || isLatin(0)) {
        m_encoding = isLatin(1) ? Encoding::kUtf16Little : Encoding::kUtf16Big;
    } else if (line.size() >= kShowsEncoding &&
               std::all_of(line.begin(), line.begin() + kShowsEncoding,
                           [](char c) { return c > '\0' && c <= '~'; })) {
        m_encoding = Encoding::kUtf8;
    }
    return 0;
}

std::uint32_t LogLines::UnitAt(std::string_view bytes, std::size_t at) const {
    const bool isLittle = m_encoding == Encoding::kUtf16Little;
    const auto byte = [&](std::size_t which) -> std::uint32_t {
        return at + which < bytes.size() ? static_cast<unsigned char>(bytes[at + which]) : 0xFFU;
    };
    return byte(isLittle ? 1 : 0) << 8U | byte(isLittle ? 0 : 1);
}

void LogLines::Decode(std::string_view utf16) {
    for (std::size_t at = 0; at < utf16.size(); at += 2) {
        const std::uint32_t unit = UnitAt(utf16, at);
        const std::uint32_t high = std::exchange(m_highSurrogate, 0);
        if (high != 0 && unit >= 0xDC00 && unit <= 0xDFFF) {
            AppendUtf8(m_line, 0x10000 + ((high - 0xD800) << 10U) + (unit - 0xDC00));
        } else if (unit >= 0xD800 && unit <= 0xDBFF) {
            m_highSurrogate = unit;
        } else {
            AppendUtf8(m_line, unit);
        }
    }
}

// The library's text, between `part`'s beginning and its end. False when nothing was found.
bool LogLines::Recognise(std::string_view part, bool isError) {
    part = EndOf(part, kLongestPart);
    auto match = FindMeaning(part);
    if (!match) {
        part = m_before;
        match = FindMeaning(part);  // a text that ends with a line's end
        m_counts.library += match ? 1 : 0;
    }
    if (match) {
        ++m_counts.records;
        const std::string_view prefix = EndOf(part.substr(0, match->begin), kLongestPrefix);
        m_sink({m_number + 1, prefix, *match, isError});
    }
    return match.has_value();
}

// Takes all of the library's lines in a part of the current line. Returns the end of the last one.
std::size_t LogLines::Scan(std::string_view line) {
    std::size_t begin = 0;
    for (std::size_t at = line.find('('); at != std::string_view::npos;
         at = line.find('(', at + 1)) {
        for (const auto& [marker, isError] : kMarkers) {
            if (line.compare(at, marker.size(), marker) == 0) {
                m_isLibrarys |= Recognise(line.substr(begin, at - begin), isError);
                m_hasMarker = true;
                begin = at + marker.size();
                m_before.clear();
            }
        }
    }
    return begin;
}

// `rest` is the part of the line after the library's last one.
void LogLines::EndLine(std::string_view rest) {
    ++m_number;
    ++m_counts.lines;
    m_counts.library += m_isLibrarys ? 1 : 0;
    m_counts.unknown += m_hasMarker && !m_isLibrarys ? 1 : 0;
    if (!m_hasMarker) {
        m_before = EndOf(rest, kKeptBefore);
    }
    m_isLibrarys = m_hasMarker = false;
}

}  // namespace lab::explain
