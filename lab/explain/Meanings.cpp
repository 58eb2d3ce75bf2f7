// Reads the compiled-in table and recognises its formats. A table that cannot be read is a fault of
// the build and ends the program; the tests see it.
#include "lab/explain/Meanings.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace lab {
extern const char kMeaningsText[];
extern const std::size_t kMeaningsTextSize;
}  // namespace lab

namespace lab::explain {

namespace {

using Piece = Meaning::Piece;

constexpr std::size_t kHeadSize = 4;       // of every format; the index needs it
constexpr std::size_t kLongestText = 511;  // that the library logs
constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kCase = "with";        // begins a field for some codes
constexpr std::string_view kOfDevice = "device";  // a word of the field "code"

const std::map<std::string_view, Role>& Roles() {
    static const std::map<std::string_view, Role> kRoles{
        {"failure", Role::kFailure},
        {"root", Role::kRoot},
        {"unusual", Role::kUnusual},
        {"content-set", Role::kContentSet},
        {"create-begins", Role::kCreateBegins},
        {"create-ends", Role::kCreateEnds},
        {"create-fails", Role::kCreateFails},
        {"start-begins", Role::kStartBegins},
        {"start-tries", Role::kStartTries},
        {"start-undone", Role::kStartUndone},
        {"start-fails", Role::kStartFails},
        {"ready", Role::kReady},
        {"route", Role::kRoute},
        {"driver-missing", Role::kDriverMissing},
        {"no-chip", Role::kNoChip},
        {"chip", Role::kChip},
        {"chip-like", Role::kChipLike},
        {"chip-silent", Role::kChipSilent},
        {"radio-fails", Role::kRadioFails},
        {"write-begins", Role::kWriteBegins},
        {"write-refused", Role::kWriteRefused},
        {"not-read", Role::kNotRead},
        {"write-tries", Role::kWriteTries},
        {"write-check", Role::kWriteCheck},
        {"chip-retry", Role::kChipRetry},
        {"write-stored", Role::kWriteStored},
        {"read-back", Role::kReadBack},
        {"write-stood", Role::kWriteStood},
        {"write-fails", Role::kWriteFails},
        {"write-failed", Role::kWriteFailed},
        {"threads-start", Role::kThreadsStart},
        {"threads-known", Role::kThreadsKnown},
        {"threads-ready", Role::kThreadsReady},
        {"threads-fail", Role::kThreadsFail},
        {"refresh-begins", Role::kRefreshBegins},
        {"refresh-fails", Role::kRefreshFails},
        {"refresh-ends", Role::kRefreshEnds},
        {"read-begins", Role::kReadBegins},
        {"read-ends", Role::kReadEnds},
        {"read-fails", Role::kReadFails},
        {"empty-tag", Role::kEmptyTag},
        {"foreign-content", Role::kForeignContent},
        {"renew-begins", Role::kRenewBegins},
        {"renew-known", Role::kRenewKnown},
        {"renew-refused", Role::kRenewRefused},
        {"renew-stored", Role::kRenewStored},
        {"renew-ends", Role::kRenewEnds},
        {"renew-outdated", Role::kRenewOutdated},
        {"renew-fails", Role::kRenewFails},
        {"renew-failed", Role::kRenewFailed},
        {"number-read-fails", Role::kNumberReadFails},
        {"visit-begins", Role::kVisitBegins},
        {"visit-counts", Role::kVisitCounts},
        {"visit-left", Role::kVisitLeft},
        {"visit-ends", Role::kVisitEnds},
        {"visit-nobody", Role::kVisitNobody},
        {"leave-status", Role::kLeaveStatus},
        {"interrupt-lost", Role::kInterruptLost},
        {"mcu", Role::kMcu},
        {"waits", Role::kWaits},
        {"loop-fails", Role::kLoopFails},
        {"loop-refused", Role::kLoopRefused},
        {"loop-error", Role::kLoopError},
        {"loop-ends", Role::kLoopEnds},
        {"connect-begins", Role::kConnectBegins},
        {"connect-ends", Role::kConnectEnds},
        {"connect-fails", Role::kConnectFails},
        {"disconnect", Role::kDisconnect},
        {"disconnect-refused", Role::kDisconnectRefused},
        {"no-answer", Role::kNoAnswer},
    };
    return kRoles;
}

const std::map<std::string_view, ThreadKind>& Kinds() {
    static const std::map<std::string_view, ThreadKind> kKinds{
        {"host", ThreadKind::kHost},           {"number", ThreadKind::kNumber},
        {"interrupt", ThreadKind::kInterrupt}, {"defer", ThreadKind::kDefer},
        {"keyboard", ThreadKind::kKeyboard},   {"ble", ThreadKind::kBle}};
    return kKinds;
}

bool IsHex(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool IsDecimal(char c) {
    return c >= '0' && c <= '9';
}

/// Cuts the blanks at the end, also those that another program has written as \n or \r.
std::string_view TrimEnd(std::string_view text) {
    for (;;) {
        const std::size_t last = text.find_last_not_of(kBlanks);
        text = text.substr(0, last == std::string_view::npos ? 0 : last + 1);
        const std::size_t size = text.size();
        if (size < 2 || text[size - 2] != '\\' ||
            (text[size - 1] != 'n' && text[size - 1] != 'r')) {
            return text;
        }
        text.remove_suffix(2);
    }
}

std::vector<Piece> Compile(std::string_view format) {
    std::vector<Piece> pieces(1);
    for (std::size_t at = 0; at < format.size(); ++at) {
        if (format[at] != '%') {
            pieces.back().text += format[at];
            continue;
        }
        const std::size_t end = format.find_first_of("duxXs", at);
        if (end == std::string_view::npos) {
            throw std::logic_error("no conversion that is known: " + std::string(format));
        }
        const bool isByte = format.substr(at, end - at) == "%02" && format[end] == 'X';
        const char letter = format[end];
        pieces.push_back({isByte                             ? Piece::Kind::kByte
                          : letter == 's'                    ? Piece::Kind::kRest
                          : (letter == 'x' || letter == 'X') ? Piece::Kind::kHex
                                                             : Piece::Kind::kDecimal,
                          {}});
        pieces.emplace_back();
        at = end;
    }
    if (pieces[0].text.size() < kHeadSize) {
        throw std::logic_error("the text before the first conversion is too short: " +
                               std::string(format));
    }
    return pieces;
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

/// The table's text, taken apart.
class TableReader {
  public:
    TableReader(std::vector<Meaning>& all, std::vector<SystemCode>& codes)
        : m_all(all), m_codes(codes) {}

    void Read(std::string_view table) {
        while (!table.empty()) {
            const std::size_t end = std::min(table.find('\n'), table.size());
            ReadLine(table.substr(0, end));
            table.remove_prefix(std::min(end + 1, table.size()));
        }
        EndBlock();
    }

  private:
    void ReadLine(std::string_view line) {
        if (line.empty() || line[0] == '#' || line.substr(0, 3) == "== ") {
            EndBlock();
        } else if (line[0] == '@' || line[0] == '!') {
            EndBlock();
            const std::size_t blank = line.find(' ');
            const std::string name(line.substr(1, blank - 1));
            const std::string text(line.substr(blank + 1));
            if (line[0] == '@') {
                m_advice[name] = text;
            } else {
                m_codes.push_back({static_cast<std::uint32_t>(std::stoul(name)), text, {}});
                m_isCode = true;
            }
        } else if (line[0] == '"') {
            if (!m_fields.empty()) {
                EndBlock();
            }
            m_formats.emplace_back(line.substr(1, line.size() - 2));
        } else if (line.substr(0, 4) == "    " && !m_last.empty()) {
            m_fields[m_last] += " " + std::string(line.substr(line.find_first_not_of(' ')));
        } else {
            std::size_t blank = line.find(' ', 2);
            if (line.substr(2, blank - 2) == kCase) {
                blank = line.find(' ', blank + 1);
            }
            m_last = line.substr(2, blank - 2);
            m_fields[m_last] = line.substr(blank + 1);
        }
    }

    std::string Take(const char* field) const {
        const auto found = m_fields.find(field);
        return found == m_fields.end() ? std::string() : found->second;
    }

    std::string Advice(std::string text) const {
        for (std::size_t at = 0; (at = text.find('@', at)) != std::string::npos;) {
            std::size_t end = at + 1;
            while (end < text.size() && text[end] >= 'a' && text[end] <= 'z') {
                ++end;
            }
            const std::string& advice = m_advice.at(text.substr(at + 1, end - at - 1));
            text.replace(at, end - at, advice);
            at += advice.size();
        }
        return text;
    }

    std::vector<Meaning::Case> Cases() const {
        std::vector<Meaning::Case> cases;
        for (const auto& [name, text] : m_fields) {
            if (name.compare(0, kCase.size(), kCase) != 0) {
                continue;
            }
            cases.push_back({{}, text});
            std::istringstream codes(name.substr(kCase.size()));
            for (std::uint32_t code = 0; codes >> code; codes.ignore()) {
                cases.back().codes.push_back(code);
            }
        }
        return cases;
    }

    void EndBlock() {
        if (std::exchange(m_isCode, false)) {
            m_codes.back().remedy = Advice(Take("do"));
        }
        for (const std::string& format : m_formats) {
            Meaning meaning;
            meaning.format = format;
            const std::string role = Take("role");
            meaning.role = role.empty() ? Role::kDetail : Roles().at(role);
            const std::string thread = Take("thread");
            meaning.thread = thread.empty() ? ThreadKind::kAny : Kinds().at(thread);
            const std::string code = Take("code");
            meaning.code = code.empty() ? 0 : static_cast<unsigned>(std::stoul(code));
            meaning.isDevice = code.find(kOfDevice) != std::string::npos;
            meaning.cases = Cases();
            meaning.says = Take("says");
            meaning.means = Take("means");
            meaning.remedy = Advice(Take("do"));
            meaning.pieces = Compile(TrimEnd(format));
            m_all.push_back(std::move(meaning));
        }
        m_formats.clear();
        m_fields.clear();
        m_last.clear();
    }

    std::vector<Meaning>& m_all;
    std::vector<SystemCode>& m_codes;
    std::map<std::string, std::string> m_advice;
    std::vector<std::string> m_formats;
    std::map<std::string, std::string> m_fields;
    std::string m_last;
    bool m_isCode = false;
};

}  // namespace

std::string Meaning::Text(std::optional<std::uint32_t> code) const {
    const auto has = [code](const Case& one) {
        return code && std::count(one.codes.begin(), one.codes.end(), *code) > 0;
    };
    auto found = std::find_if(cases.begin(), cases.end(), has);
    if (found == cases.end()) {
        found = std::find_if(cases.begin(), cases.end(),
                             [](const Case& one) { return one.codes.empty(); });
    }
    return found == cases.end() ? means : means + " " + found->text;
}

Meanings::Meanings() {
    TableReader(m_all, m_codes).Read({kMeaningsText, kMeaningsTextSize});
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
