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

constexpr std::size_t kBeginning = 16;  // bytes that show the encoding
constexpr std::size_t kKeptBefore = 1024;
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

void AppendUtf8(std::string& text, std::uint32_t code) {
    const auto byte = [&](std::uint32_t value) { text += static_cast<char>(value); };
    if (code < 0x80) {
        byte(code);
    } else if (code < 0x800) {
        byte(0xC0 | (code >> 6U));
        byte(0x80 | (code & 0x3FU));
    } else if (code < 0x10000) {
        byte(0xE0 | (code >> 12U));
        byte(0x80 | ((code >> 6U) & 0x3FU));
        byte(0x80 | (code & 0x3FU));
    } else {
        byte(0xF0 | (code >> 18U));
        byte(0x80 | ((code >> 12U) & 0x3FU));
        byte(0x80 | ((code >> 6U) & 0x3FU));
        byte(0x80 | (code & 0x3FU));
    }
}

}  // namespace

void LogLines::Take(std::string_view bytes) {
    if (m_encoding == Encoding::kUnknown) {
        m_beginning += bytes;
        if (m_beginning.size() < kBeginning) {
            return;
        }
        ChooseEncoding();
        return;
    }
    if (m_encoding == Encoding::kUtf8) {
        TakeText(bytes);
    } else {
        TakeUtf16(bytes);
    }
}

void LogLines::ChooseEncoding() {
    std::string begin;
    begin.swap(m_beginning);
    const auto isZero = [&](std::size_t from) {
        const std::size_t size = std::min(begin.size(), kBeginning) & ~std::size_t{1};
        for (std::size_t at = from; at < size; at += 2) {
            if (begin[at] != '\0' || begin[at ^ 1U] == '\0') {
                return false;
            }
        }
        return size >= 2;
    };
    std::size_t mark = 2;
    if (begin.compare(0, 2, "\xFF\xFE") == 0) {
        m_encoding = Encoding::kUtf16Little;
    } else if (begin.compare(0, 2, "\xFE\xFF") == 0) {
        m_encoding = Encoding::kUtf16Big;
    } else {
        // A log that was cut has no mark; Latin text has a zero in every second byte.
        m_encoding = isZero(1)   ? Encoding::kUtf16Little
                     : isZero(0) ? Encoding::kUtf16Big
                                 : Encoding::kUtf8;
        mark = begin.compare(0, kUtf8Mark.size(), kUtf8Mark) == 0 ? kUtf8Mark.size() : 0;
    }
    Take(std::string_view(begin).substr(mark));
}

void LogLines::TakeUtf16(std::string_view bytes) {
    m_decoded.clear();
    for (const char one : bytes) {
        const std::uint32_t byte = static_cast<unsigned char>(one);
        if (!m_hasHalf) {
            m_half = byte;
            m_hasHalf = true;
            continue;
        }
        m_hasHalf = false;
        const std::uint32_t unit =
            m_encoding == Encoding::kUtf16Little ? m_half | (byte << 8U) : (m_half << 8U) | byte;
        if (m_highSurrogate != 0 && unit >= 0xDC00 && unit <= 0xDFFF) {
            AppendUtf8(m_decoded, 0x10000 + ((m_highSurrogate - 0xD800) << 10U) + (unit - 0xDC00));
            m_highSurrogate = 0;
        } else {
            m_highSurrogate = unit >= 0xD800 && unit <= 0xDBFF ? unit : 0;
            if (m_highSurrogate == 0) {
                AppendUtf8(m_decoded, unit);
            }
        }
    }
    TakeText(m_decoded);
}

void LogLines::TakeText(std::string_view text) {
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const bool isWhole = end != std::string_view::npos;
        const std::string_view part = text.substr(0, end);
        if (isWhole && m_rest.empty()) {
            EndLine(part.substr(Scan(part)));
        } else {
            m_rest += part;
            if (isWhole || m_rest.size() > 2 * kLongestPart) {
                m_rest.erase(0, Scan(m_rest));
            }
            if (isWhole) {
                EndLine(m_rest);
                m_rest.clear();
            } else if (m_rest.size() > 2 * kLongestPart) {
                m_rest.erase(0, m_rest.size() - kLongestPart);
            }
        }
        text.remove_prefix(isWhole ? end + 1 : text.size());
    }
}

void LogLines::End() {
    if (m_encoding == Encoding::kUnknown) {
        ChooseEncoding();
    }
    if (!m_rest.empty() || m_hasMarker) {
        EndLine(std::string_view(m_rest).substr(Scan(m_rest)));
        m_rest.clear();
    }
}

// The library's text, between `part`'s beginning and its end. False when nothing was found.
bool LogLines::Recognise(std::string_view part, bool isError) {
    part = part.substr(part.size() - std::min(part.size(), kLongestPart));
    auto match = Meanings::Get().Find(part);
    if (!match && !m_before.empty()) {
        match = Meanings::Get().Find(m_before);  // a text that ends with a line's end
        if (match) {
            part = m_before;
            ++m_lines;
        }
    }
    if (!match) {
        return false;
    }
    ++m_records;
    m_sink({m_number + 1, part.substr(0, match->begin), *match, isError});
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
    ++m_number;
    m_lines += m_isLibrarys ? 1 : 0;
    m_unknown += m_hasMarker && !m_isLibrarys ? 1 : 0;
    if (!m_hasMarker) {
        m_before.assign(rest.substr(rest.size() - std::min(rest.size(), kKeptBefore)));
    }
    m_isLibrarys = m_hasMarker = false;
}

}  // namespace lab::explain
