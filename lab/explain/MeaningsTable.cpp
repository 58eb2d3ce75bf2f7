#include "lab/explain/MeaningsTable.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

namespace lab {
extern const char kMeaningsText[];
extern const std::size_t kMeaningsTextSize;
}  // namespace lab

namespace lab::explain {

namespace {

using Piece = Meaning::Piece;
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

void ReadMeaningsTable(std::vector<Meaning>& meanings, std::vector<SystemCode>& codes) {
    TableReader(meanings, codes).Read({kMeaningsText, kMeaningsTextSize});
}

}  // namespace lab::explain
