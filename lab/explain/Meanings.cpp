// The index over the formats of the table, and the recognition of a line.
#include "lab/explain/Meanings.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstring>

#include "lab/explain/MeaningsTable.h"

namespace lab::explain {

namespace {

using Piece = Meaning::Piece;

constexpr std::size_t kLongestText = 511;  // that the library logs

bool IsHex(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool IsDecimal(char c) {
    return c >= '0' && c <= '9';
}

/// The argument at the beginning of `text`; nothing when there is none.
std::optional<std::string_view> Argument(Piece::Kind kind, std::string_view text) {
    std::size_t size = 0;
    switch (kind) {
        case Piece::Kind::kDecimal:
            while (size < text.size() && (text[size] == '-' || text[size] == ' ') && size < 2) {
                ++size;
            }
            while (size < text.size() && IsDecimal(text[size])) {
                ++size;
            }
            break;
        case Piece::Kind::kHex:
            while (size < text.size() && IsHex(text[size])) {
                ++size;
            }
            break;
        case Piece::Kind::kByte:
            size = text.size() >= 2 && IsHex(text[0]) && IsHex(text[1]) ? 2 : 0;
            break;
        default:
            size = text.size();
            break;
    }
    return size == 0 ? std::nullopt : std::optional(text.substr(0, size));
}

std::optional<std::uint32_t> Number(std::string_view text, Piece::Kind kind) {
    while (!text.empty() && text[0] == ' ') {
        text.remove_prefix(1);
    }
    std::int64_t value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value,
                                        kind == Piece::Kind::kHex ? 16 : 10);
    return result.ec == std::errc() ? std::optional(static_cast<std::uint32_t>(value))
                                    : std::nullopt;
}

bool Fits(const Meaning& meaning, std::string_view text, Match& match) {
    unsigned argument = 0;
    match.code.reset();
    match.firstArgument = {};
    for (const Piece& piece : meaning.pieces) {
        if (piece.kind == Piece::Kind::kText) {
            if (text.substr(0, piece.text.size()) != piece.text) {
                return false;
            }
            text.remove_prefix(piece.text.size());
            continue;
        }
        const auto value = Argument(piece.kind, text);
        if (!value) {
            return false;
        }
        ++argument;
        if (argument == 1) {
            match.firstArgument = *value;
        }
        if (argument == meaning.code) {
            match.code = Number(*value, piece.kind);
        }
        text.remove_prefix(value->size());
    }
    return text.empty();
}

}  // namespace

std::string Meaning::Text(std::optional<std::uint32_t> errorCode) const {
    const auto has = [errorCode](const Case& one) {
        return errorCode && std::count(one.codes.begin(), one.codes.end(), *errorCode) > 0;
    };
    auto found = std::find_if(cases.begin(), cases.end(), has);
    if (found == cases.end()) {
        found = std::find_if(cases.begin(), cases.end(),
                             [](const Case& one) { return one.codes.empty(); });
    }
    return found == cases.end() ? means : means + " " + found->text;
}

Meanings::Meanings() {
    ReadMeaningsTable(m_all, m_codes);
    Index();
}

void Meanings::Index() {
    for (std::size_t index = 0; index < m_all.size(); ++index) {
        m_byBeginning[Bucket(m_all[index].pieces[0].text.data())].push_back(
            static_cast<std::uint16_t>(index));
    }
}

const Meanings& Meanings::Get() {
    static const Meanings* const meanings = new Meanings;
    return *meanings;
}

std::size_t Meanings::Bucket(const char* four) {
    std::uint32_t value = 0;
    std::memcpy(&value, four, kHeadSize);
    return (value * 2654435761U) >> 22U;
}

std::optional<Match> Meanings::Find(std::string_view part) const {
    part = TrimEnd(part);
    Match match;
    const std::size_t first = part.size() - std::min(part.size(), kLongestText);
    for (std::size_t at = first; at + kHeadSize <= part.size(); ++at) {
        for (const std::uint16_t index : m_byBeginning[Bucket(part.data() + at)]) {
            if (Fits(m_all[index], part.substr(at), match)) {
                match.meaning = &m_all[index];
                match.begin = at;
                match.text = part.substr(at);
                return match;
            }
        }
    }
    return std::nullopt;
}

const SystemCode* Meanings::CodeOf(std::uint32_t code) const {
    const auto found = std::find_if(m_codes.begin(), m_codes.end(),
                                    [code](const SystemCode& one) { return one.code == code; });
    return found == m_codes.end() ? nullptr : &*found;
}

std::string_view Meanings::CodeText(std::uint32_t code) const {
    const SystemCode* const found = CodeOf(code);
    return found == nullptr ? std::string_view() : found->text;
}

std::string_view Meanings::CodeRemedy(std::uint32_t code) const {
    const SystemCode* const found = CodeOf(code);
    return found == nullptr ? std::string_view() : found->remedy;
}

}  // namespace lab::explain
