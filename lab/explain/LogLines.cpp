#include "lab/explain/LogLines.h"

#include <algorithm>
#include <array>

namespace lab::explain {

namespace {

// What the library writes after each text.
struct Marker {
    std::string_view text;
    bool isError;
};
constexpr std::array<Marker, 3> kMarkers{{
    {"(LogWarnFun)", false},
    {"(LogErrorFun)", true},
    {"(NfcProxy::BtConnect)", true},
}};

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

LineCounts& LineCounts::operator+=(const LineCounts& more) {
    lines += more.lines;
    library += more.library;
    unknown += more.unknown;
    records += more.records;
    return *this;
}

void LogLines::Take(std::string_view bytes) {
    if (m_held.empty()) {
        TakeKnown(bytes, false);
    } else {
        std::string joined;
        joined.swap(m_held);
        TakeKnown(joined.append(bytes), false);
    }
}

void LogLines::End() {
    std::string held;
    held.swap(m_held);
    TakeKnown(held, true);
    if (!m_rest.empty() || m_hasMarker) {
        TakeText({}, true);
    }
}

void LogLines::TakeKnown(std::string_view bytes, bool isEnd) {
    while (!bytes.empty()) {
        const std::size_t least = m_isLineStart                   ? kShowsEncoding
                                  : m_encoding == Encoding::kUtf8 ? 1
                                                                  : 2;
        if (bytes.size() < least && !isEnd) {
            m_held = bytes;
            return;
        }
        if (m_isLineStart) {
            bytes.remove_prefix(ChooseEncoding(bytes));
        }
        bool isWhole = false;
        std::string_view text = bytes;
        std::size_t used = 0;
        if (m_encoding == Encoding::kUtf8) {
            text = bytes.substr(0, bytes.find('\n'));
            isWhole = text.size() < bytes.size();
            used = text.size() + (isWhole ? 1 : 0);
        } else {
            used = Decode(bytes, isWhole);
            text = m_decoded;
            if (used == 0) {  // half a character
                m_held = bytes;
                return;
            }
        }
        TakeText(text, isWhole);
        bytes.remove_prefix(used);
        m_isLineStart = isWhole;
    }
}

/// Of a line that begins like this. Returns the size of a byte order mark.
std::size_t LogLines::ChooseEncoding(std::string_view line) {
    m_isLineStart = false;
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

/// UTF-16 up to the end of the line; returns the bytes that were taken.
std::size_t LogLines::Decode(std::string_view bytes, bool& isWhole) {
    m_decoded.clear();
    std::size_t at = 0;
    for (; at + 1 < bytes.size() && !isWhole; at += 2) {
        const std::uint32_t first = static_cast<unsigned char>(bytes[at]);
        const std::uint32_t second = static_cast<unsigned char>(bytes[at + 1]);
        const std::uint32_t unit =
            m_encoding == Encoding::kUtf16Little ? first | second << 8U : first << 8U | second;
        if (m_highSurrogate != 0 && unit >= 0xDC00 && unit <= 0xDFFF) {
            AppendUtf8(m_decoded, 0x10000 + ((m_highSurrogate - 0xD800) << 10U) + (unit - 0xDC00));
            m_highSurrogate = 0;
            continue;
        }
        m_highSurrogate = unit >= 0xD800 && unit <= 0xDBFF ? unit : 0;
        isWhole = unit == '\n';
        if (m_highSurrogate == 0 && !isWhole) {
            AppendUtf8(m_decoded, unit);
        }
    }
    return at;
}

void LogLines::TakeText(std::string_view text, bool isWhole) {
    if (isWhole && m_rest.empty()) {
        EndLine(text.substr(Scan(text)));
        return;
    }
    m_rest += text;
    if (isWhole) {
        EndLine(std::string_view(m_rest).substr(Scan(m_rest)));
        m_rest.clear();
    } else if (m_rest.size() > 2 * kLongestPart) {
        m_rest.erase(0, Scan(m_rest));
        m_rest = EndOf(std::string(m_rest), kLongestPart);
    }
}

// The library's text, between `part`'s beginning and its end. False when nothing was found.
bool LogLines::Recognise(std::string_view part, bool isError) {
    part = EndOf(part, kLongestPart);
    auto match = FindMeaning(part);
    if (!match && !m_before.empty()) {
        match = FindMeaning(m_before);  // a text that ends with a line's end
        if (match) {
            part = m_before;
            ++m_counts.library;
        }
    }
    if (!match) {
        return false;
    }
    ++m_counts.records;
    const std::string_view prefix = EndOf(part.substr(0, match->begin), kLongestPrefix);
    m_sink({m_counts.lines + 1, prefix, *match, isError});
    return true;
}

// Takes all of the library's lines in a part of the current line. Returns the end of the last one.
std::size_t LogLines::Scan(std::string_view line) {
    std::size_t partBegin = 0;
    for (std::size_t at = line.find('('); at != std::string_view::npos; at = line.find('(', at)) {
        const std::string_view rest = line.substr(at);
        const auto* const marker = std::find_if(
            kMarkers.data(), kMarkers.data() + kMarkers.size(),
            [&](const Marker& one) { return rest.substr(0, one.text.size()) == one.text; });
        if (marker == kMarkers.data() + kMarkers.size()) {
            ++at;
            continue;
        }
        m_isLibrarys |= Recognise(line.substr(partBegin, at - partBegin), marker->isError);
        m_hasMarker = true;
        at += marker->text.size();
        partBegin = at;
        m_before.clear();
    }
    return partBegin;
}

// `rest` is the part of the line after the library's last one.
void LogLines::EndLine(std::string_view rest) {
    ++m_counts.lines;
    m_counts.library += m_isLibrarys ? 1 : 0;
    m_counts.unknown += m_hasMarker && !m_isLibrarys ? 1 : 0;
    if (!m_hasMarker) {
        m_before = EndOf(rest, kKeptBefore);
    }
    m_isLibrarys = m_hasMarker = false;
}

}  // namespace lab::explain
