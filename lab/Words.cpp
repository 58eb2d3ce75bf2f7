#include "lab/Words.h"

#include <algorithm>
#include <cstdint>

#include "lab/Hex.h"
#include "platform/Utf8.h"

namespace lab {

namespace {

constexpr std::size_t kNarrowest = 30;    // columns of a text that is wrapped
constexpr std::size_t kLongestWord = 64;  // that is compared; longer ones are no typing errors

/// Letters to insert, delete, replace or swap with the next one.
std::size_t Distance(const std::string& a, const std::string& b) {
    std::vector<std::vector<std::size_t>> row(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            std::size_t& least = row[i][j];
            least = std::max(i, j);
            if (i > 0 && j > 0) {
                const std::size_t other = a[i - 1] == b[j - 1] ? 0 : 1;
                least = std::min({row[i - 1][j] + 1, row[i][j - 1] + 1, row[i - 1][j - 1] + other});
            }
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                least = std::min(least, row[i - 2][j - 2] + 1);
            }
        }
    }
    return row[a.size()][b.size()];
}

bool IsControl(std::uint32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0);
}

std::string EscapedByte(char byte) {
    return byte == '\n'   ? "\\n"
           : byte == '\r' ? "\\r"
           : byte == '\t' ? "\\t"
                          : "\\x" + ToHex(std::string_view(&byte, 1));
}

std::string Escape(std::string_view text, bool controls) {
    std::string shown;
    while (!text.empty()) {
        const platform::Utf8Character character = platform::FirstOfUtf8(text);
        const std::size_t size = character.valid ? character.length : 1;
        if (!character.valid || (controls && IsControl(character.codePoint))) {
            for (const char byte : text.substr(0, size)) {
                shown += EscapedByte(byte);
            }
        } else {
            shown += text.substr(0, size);
        }
        text.remove_prefix(size);
    }
    return shown;
}

}  // namespace

std::string Quoted(std::string_view text) {
    return "\"" + std::string(text) + "\"";
}

std::string Counted(std::size_t count, const std::string& unit) {
    return std::to_string(count) + " " + unit + (count == 1 ? "" : "s");
}

std::vector<std::string> Split(std::string_view text, char separator) {
    std::vector<std::string> parts;
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find(separator, at), text.size());
        parts.emplace_back(text.substr(at, end - at));
        at = end + 1;
    }
    return parts;
}

std::string Joined(const std::vector<std::string>& words, const std::string& between) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : between) + word;
    }
    return text;
}

std::string_view WithoutByteOrderMark(std::string_view text) {
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    return text.substr(text.rfind(kMark, 0) == 0 ? kMark.size() : 0);
}

std::string Wrapped(std::string_view text, std::size_t width, std::size_t indent,
                    std::size_t hanging) {
    std::string wrapped;
    std::size_t column = indent;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t blank = std::min(text.find(' ', at + 1), text.size());
        if (width > hanging + kNarrowest && column > hanging && column + blank - at > width) {
            wrapped += "\n" + std::string(hanging, ' ');
            column = hanging;
            at += text[at] == ' ' ? 1 : 0;
        }
        wrapped += text.substr(at, blank - at);
        column += blank - at;
        at = blank;
    }
    return wrapped;
}

std::string Suggestion(const std::vector<std::string>& allowed, const std::string& typed) {
    if (typed.size() > kLongestWord) {
        return {};
    }
    std::string best;
    std::size_t least = std::max<std::size_t>(typed.size() / 3, 1) + 1;
    for (const std::string& one : allowed) {
        // Letters that were left out at the end are the most frequent case.
        const bool isBeginning = typed.size() > 3 && one.compare(0, typed.size(), typed) == 0;
        const std::size_t distance = isBeginning ? 1 : Distance(typed, one);
        if (distance < least) {
            least = distance;
            best = one;
        }
    }
    return best.empty() ? best : "; did you mean \"" + best + "\"?";
}

std::string Printable(std::string_view text) {
    return Escape(text, true);
}

std::string ValidUtf8(std::string_view text) {
    return Escape(text, false);
}

}  // namespace lab
