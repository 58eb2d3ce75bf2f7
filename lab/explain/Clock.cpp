#include "lab/explain/Clock.h"

#include <algorithm>
#include <array>
#include <string>

namespace lab::explain {

namespace {

// Y year, N month's name, M month, D day, h m s; a blank is one or several, or a comma. A year has
// four digits, another number one or two, and two where nothing separates them. The last date is
// none.
constexpr std::array<std::string_view, 15> kDates{"Y-M-D", "Y/M/D", "Y.M.D", "YMD",   "D.M.Y",
                                                  "M/D/Y", "D/M/Y", "D-M-Y", "N D Y", "N D",
                                                  "D N Y", "D/N/Y", "D-N-Y", "M-D",   ""};
constexpr std::array<std::string_view, 2> kTimes{"h:m:s", "hms"};
constexpr std::array<std::string_view, 7> kOffsets{"Z", "+h:m", "-h:m", "+hm", "-hm", "+h", "-h"};
constexpr std::string_view kMonths = "janfebmaraprmayjunjulaugsepoctnovdec";
constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kFields = "YMDhms";
enum Field : std::uint8_t { kYear, kMonth, kDay, kHour, kMinute, kSecond };
using Fields = std::array<int, kFields.size()>;
constexpr Fields kLeast{1970, 1, 1, 0, 0, 0};
constexpr Fields kMost{9999, 12, 31, 23, 59, 60};
constexpr Fields kNoDate{2000, 1, 1, 0, 0, 0};  // a leap year

bool StartsWith(std::string_view text, std::string_view characters) {
    return !text.empty() && characters.find(text[0]) != std::string_view::npos;
}

bool IsWord(std::string_view text) {
    return StartsWith(text, kDigits) ||
           (!text.empty() && (text[0] | 0x20) >= 'a' && (text[0] | 0x20) <= 'z');
}

std::string_view Without(std::string_view text, std::string_view characters) {
    return text.substr(std::min(text.find_first_not_of(characters), text.size()));
}

int Month(std::string_view name) {
    std::string lower(name);
    for (char& c : lower) {
        c = static_cast<char>(c | 0x20);
    }
    const std::size_t found = kMonths.find(lower);
    return found % 3 == 0 ? static_cast<int>(found / 3) + 1 : 0;
}

/// Takes what `form` describes from the beginning of `text`, or nothing.
bool Take(std::string_view& text, std::string_view form, Fields& fields) {
    const bool isTight = form.find_first_not_of(kFields) == std::string_view::npos;
    std::string_view rest = text;
    for (const char& part : form) {
        const std::size_t field = kFields.find(part == 'N' ? 'M' : part);
        if (field >= fields.size()) {
            const std::size_t before = rest.size();
            rest = part == ' ' ? Without(rest, " ,")
                               : rest.substr(StartsWith(rest, {&part, 1}) ? 1 : 0);
            if (rest.size() == before) {
                return false;
            }
            continue;
        }
        const std::size_t most = part == 'Y' ? 4 : part == 'N' ? 3 : 2;
        const std::string_view value = rest.substr(
            0, part == 'N' ? most : std::min(rest.size() - Without(rest, kDigits).size(), most));
        const bool isShort = value.size() < (isTight || part == 'Y' || part == 'N' ? most : 1);
        int number = part == 'N' ? Month(value) : 0;
        for (std::size_t at = 0; at < value.size() && part != 'N'; ++at) {
            number = number * 10 + (value[at] - '0');
        }
        if (isShort || number < kLeast[field] || number > kMost[field]) {
            return false;
        }
        fields[field] = number;
        rest.remove_prefix(value.size());
    }
    text = rest;
    return true;
}

/// Days since 1 January 1970.
std::int64_t Days(const Fields& date) {
    const int year = date[kMonth] <= 2 ? date[kYear] - 1 : date[kYear];
    const int month = date[kMonth] + (date[kMonth] > 2 ? -3 : 9);
    const int leapDays = year / 4 - year / 100 + year / 400;
    return year * 365 + leapDays + (153 * month + 2) / 5 + date[kDay] - 1 - 719'468;
}

/// What may follow the seconds: a fraction, AM or PM, an offset from UTC.
std::int64_t MicrosAfter(std::string_view& text, const Fields& time) {
    std::int64_t micros = 0;
    if (StartsWith(text, ".,:") && StartsWith(text.substr(1), kDigits)) {
        text.remove_prefix(1);
        for (std::int64_t unit = kMicrosPerSecond / 10; StartsWith(text, kDigits); unit /= 10) {
            micros += (text[0] - '0') * unit;
            text.remove_prefix(1);
        }
    }
    const std::string_view half = Without(text, " ");
    if (StartsWith(half, "APap") && StartsWith(half.substr(1), "Mm") && !IsWord(half.substr(2))) {
        const int hours = (StartsWith(half, "Pp") ? 12 : 0) - (time[kHour] == 12 ? 12 : 0);
        micros += hours * 3600 * kMicrosPerSecond;
        text = half.substr(2);
    }
    for (const std::string_view offset : kOffsets) {
        Fields ignored{};
        std::string_view rest = Without(text, " ");
        if (Take(rest, offset, ignored) && !IsWord(rest)) {
            text = rest;
            break;
        }
    }
    return micros;
}

std::optional<Clock> ClockAt(std::string_view prefix, std::size_t at) {
    for (const std::string_view date : kDates) {
        for (const std::string_view time : kTimes) {
            Fields f = kNoDate;
            std::string_view rest = prefix.substr(at);
            // Six digits alone are more often something else.
            if ((date.empty() && time != kTimes[0]) || !Take(rest, date, f)) {
                continue;
            }
            rest = date.empty() ? rest : Without(rest, "T_-, :");
            if (Take(rest, time, f) && !StartsWith(rest, kDigits)) {
                const std::int64_t days = date.empty() ? 0 : Days(f);
                const std::int64_t seconds =
                    days * 86'400 + f[kHour] * 3600 + f[kMinute] * 60 + f[kSecond];
                const std::int64_t micros = seconds * kMicrosPerSecond + MicrosAfter(rest, f);
                return Clock{at, prefix.size() - rest.size(), micros, !date.empty()};
            }
        }
    }
    return std::nullopt;
}

}  // namespace

std::optional<Clock> FindClock(std::string_view prefix) {
    std::optional<Clock> clock;
    for (std::size_t at = 0; at < prefix.size() && !clock; ++at) {
        if (IsWord(prefix.substr(at)) && (at == 0 || !IsWord(prefix.substr(at - 1)))) {
            clock = ClockAt(prefix, at);
        }
    }
    return clock;
}

}  // namespace lab::explain
