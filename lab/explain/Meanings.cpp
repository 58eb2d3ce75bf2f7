#include "lab/explain/Meanings.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <vector>

namespace lab::explain {

namespace {

constexpr std::size_t kLongestText = 511;  // that the library logs
constexpr std::size_t kHeadSize = 4;       // of each format, before its first conversion
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
    for (const SystemCode& one : kSystemCodes) {
        if (one.code == code) {
            return &one;
        }
    }
    return nullptr;
}

}  // namespace lab::explain
