#include "lab/explain/LogLines.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <vector>

#include "platform/Utf8.h"

namespace lab::explain {

namespace {

// What the library writes after each text; after warnings the first one.
constexpr std::array<std::string_view, 3> kMarkers{"(LogWarnFun)", "(LogErrorFun)",
                                                   "(NfcProxy::BtConnect)"};

constexpr std::size_t kShowsEncoding = 8;  // bytes at the beginning of a line
constexpr std::size_t kKeptBefore = 1024;
constexpr std::size_t kLongestPrefix = 512;  // of a longer one, this much before the text
constexpr std::size_t kLongestText = 511;    // that the library logs
constexpr std::size_t kHeadSize = 4;         // of each format, before its first conversion
constexpr std::string_view kBlanks = " \t\r\n";

/// Cuts the blanks at the end, also those that another program has written as \n or \r.
std::string_view TrimEnd(std::string_view text) {
    for (;;) {
        text = text.substr(0, text.find_last_not_of(kBlanks) + 1);
        const std::string_view end = text.substr(std::max<std::size_t>(2, text.size()) - 2);
        if (end != "\\n" && end != "\\r") {
            return text;
        }
        text.remove_suffix(end.size());
    }
}

/// Takes the text of one conversion from the beginning of `text`; nothing when there is none.
std::optional<std::uint32_t> TakeArgument(std::string_view conversion, std::string_view& text) {
    const bool isText = conversion.back() == 's';
    const bool isDecimal = conversion.back() == 'd' || conversion.back() == 'u';
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    const char* const begin = text.data();
    std::size_t size = conversion == "%02X" ? std::min<std::size_t>(text.size(), 2) : text.size();
    std::int64_t value = 0;
    if (!isText) {
        size = static_cast<std::size_t>(
            std::from_chars(begin, begin + size, value, isDecimal ? 10 : 16).ptr - begin);
    }
    text.remove_prefix(size);
    return size > 0 ? std::optional(static_cast<std::uint32_t>(value)) : std::nullopt;
}

bool Fits(std::string_view text, const Meaning& meaning, std::optional<std::uint32_t>& code) {
    std::string_view format = meaning.format;
    for (unsigned argument = 1;; ++argument) {
        const std::size_t fixed = std::min(format.find('%'), format.size());
        if (text.substr(0, fixed) != format.substr(0, fixed)) {
            return false;
        }
        text.remove_prefix(fixed);
        format.remove_prefix(fixed);
        if (format.empty()) {
            return text.empty();
        }
        const std::string_view conversion = format.substr(0, format.find_first_of("duxXs") + 1);
        const std::optional<std::uint32_t> value = TakeArgument(conversion, text);
        if (!value) {
            return false;
        }
        code = argument == meaning.code ? value : code;
        format.remove_prefix(conversion.size());
    }
}

std::size_t Bucket(const char* head) {
    std::uint32_t value = 0;
    std::memcpy(&value, head, kHeadSize);
    return (value * 2654435761U) >> 22U;
}

/// The meanings that hold without a condition, by the first characters of their formats.
using Index = std::array<std::vector<const Meaning*>, 1024>;

Index MakeIndex() {
    Index index;
    for (const Meaning& one : kMeanings) {
        if (one.condition == Condition::kNone) {
            index.at(Bucket(one.format.data())).push_back(&one);
        }
    }
    return index;
}

std::string_view EndOf(std::string_view text, std::size_t most) {
    return text.substr(text.size() - std::min(text.size(), most));
}

}  // namespace

std::optional<Match> FindMeaning(std::string_view part) {
    static const Index& index = *new Index(MakeIndex());
    part = TrimEnd(part);
    for (std::size_t begin = part.size() - std::min(part.size(), kLongestText);
         begin + kHeadSize <= part.size(); ++begin) {
        for (const Meaning* const meaning : index[Bucket(part.data() + begin)]) {
            std::optional<std::uint32_t> code;
            if (Fits(part.substr(begin), *meaning, code)) {
                return Match{meaning, begin, std::string(part.substr(begin)), code};
            }
        }
    }
    return std::nullopt;
}

const SystemCode* FindCode(std::optional<std::uint32_t> code) {
    const auto found = std::find_if(kSystemCodes.begin(), kSystemCodes.end(),
                                    [&](const SystemCode& one) { return one.code == code; });
    return found == kSystemCodes.end() ? nullptr : &*found;
}

void LogLines::Take(std::string_view bytes, bool isEnd) {
    m_bytes += bytes;
    std::string_view rest = m_bytes;
    for (std::size_t size = 1; size > 0; rest.remove_prefix(size)) {
        if (m_isLineStart && rest.size() < kShowsEncoding && !isEnd) {
            break;
        }
        if (std::exchange(m_isLineStart, false)) {
            rest.remove_prefix(ChooseEncoding(rest));
        }
        size = Decode(rest);
        if (!m_line.empty() && m_line.back() == '\n') {
            m_line.pop_back();
            EndLine();
        } else if (m_line.size() > 2 * kLongestPart) {
            Scan();
        }
    }
    m_bytes.erase(0, m_bytes.size() - rest.size());
}

void LogLines::End() {
    Take({}, true);
    if (!m_line.empty() || m_hasMarker) {
        EndLine();
    }
}

/// Of a line that begins like this. Returns the size of a byte order mark.
std::size_t LogLines::ChooseEncoding(std::string_view line) {
    // An x is any character of ASCII; those without one are byte order marks.
    constexpr std::array<std::pair<std::string_view, Encoding>, 6> kBeginnings{
        {{"\xEF\xBB\xBF", Encoding::kUtf8},
         {"\xFF\xFE", Encoding::kUtf16Little},
         {"\xFE\xFF", Encoding::kUtf16Big},
         {{"x\0x\0", 4}, Encoding::kUtf16Little},
         {{"\0x\0x", 4}, Encoding::kUtf16Big},
         {"xxxxxxxx", Encoding::kUtf8}}};
    const auto fits = [](char wanted, char c) {
        return wanted == 'x' ? c > '\0' && c <= '~' : c == wanted;
    };
    for (const auto& [bytes, encoding] : kBeginnings) {
        if (line.size() >= bytes.size() &&
            std::equal(bytes.begin(), bytes.end(), line.begin(), fits)) {
            m_encoding = encoding;
            return bytes.find('x') == std::string_view::npos ? bytes.size() : 0;
        }
    }
    return 0;
}

/// Appends up to the end of the line. Returns the size of what it has read.
std::size_t LogLines::Decode(std::string_view bytes) {
    std::size_t at = 0;
    if (m_encoding == Encoding::kUtf8) {
        at = bytes.empty() ? 0 : std::min(bytes.find('\n'), bytes.size() - 1) + 1;
        m_line += bytes.substr(0, at);
        return at;
    }
    const std::size_t high = m_encoding == Encoding::kUtf16Big ? 0 : 1;
    for (std::uint32_t unit = 0; at + 1 < bytes.size() && unit != '\n'; at += 2) {
        const auto upper = static_cast<unsigned char>(bytes[at + high]);
        const auto lower = static_cast<unsigned char>(bytes[at + 1 - high]);
        unit = upper * 256U + lower;
        platform::AppendUtf8(m_line, unit);
    }
    return at;
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
        std::string prefix(EndOf(part.substr(0, match->begin), kLongestPrefix));
        for (std::size_t at = 0; (at = prefix.find("\x1B[", at)) != std::string::npos;) {
            const std::size_t end = prefix.find_first_not_of("\x1B[0123456789;", at);
            prefix.erase(at, std::min(end, prefix.size()) - at + 1);
        }
        m_sink({m_file, m_number, std::move(prefix), *match, isError});
    }
    return match.has_value();
}

// Takes all of the library's texts in what there is of the current line.
void LogLines::Scan() {
    const std::string_view line = m_line;
    std::size_t begin = 0;
    for (std::size_t at = line.find('('); at != std::string_view::npos;
         at = line.find('(', at + 1)) {
        for (const std::string_view marker : kMarkers) {
            if (line.compare(at, marker.size(), marker) == 0) {
                m_isLibrarys |= Recognise(line.substr(begin, at - begin), marker != kMarkers[0]);
                m_hasMarker = true;
                begin = at + marker.size();
                m_before.clear();
            }
        }
    }
    m_line.erase(0, std::max(begin, m_line.size() - std::min(m_line.size(), kLongestPart)));
}

void LogLines::EndLine() {
    Scan();
    ++m_number;
    ++m_counts.lines;
    m_counts.library += m_isLibrarys ? 1 : 0;
    m_counts.unknown += m_hasMarker && !m_isLibrarys ? 1 : 0;
    if (!m_hasMarker) {
        m_before = EndOf(m_line, kKeptBefore);
    }
    m_line.clear();
    m_isLibrarys = m_hasMarker = false;
    m_isLineStart = true;
}

}  // namespace lab::explain
