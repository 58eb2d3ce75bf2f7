#include "lab/explain/Clock.h"

#include <algorithm>
#include <array>

namespace lab::explain {

namespace {

// Y year, N month's name, M month, D day, h m s; a blank is one or several, or a comma. A year has
// four digits, another number one or two, and two where nothing separates them.
constexpr std::array<std::string_view, 14> kDates{"Y-M-D", "Y/M/D", "Y.M.D", "YMD",   "D.M.Y",
                                                  "M/D/Y", "D/M/Y", "D-M-Y", "N D Y", "N D",
                                                  "D N Y", "D/N/Y", "D-N-Y", "M-D"};
constexpr std::array<std::string_view, 2> kTimes{"h:m:s", "hms"};
constexpr std::array<std::string_view, 7> kOffsets{"Z", "+h:m", "-h:m", "+hm", "-hm", "+h", "-h"};
constexpr std::string_view kBeforeTime = "T_-, :";
constexpr std::string_view kMonths = "janfebmaraprmayjunjulaugsepoctnovdec";
constexpr std::string_view kFields = "YMDhms";
enum Field : std::uint8_t { kYear, kMonth, kDay, kHour, kMinute, kSecond };
constexpr int kLeapYear = 2000;  // of a date without one
using Fields = std::array<int, kFields.size()>;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool IsWord(char c) {
    return IsDigit(c) || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z');
}

/// A place in a text that moves on over what it recognises.
struct Cursor {
    std::string_view text;
    std::size_t at = 0;

    char Next() const { return at < text.size() ? text[at] : '\0'; }
    bool Skip(std::string_view characters) {
        const std::size_t begin = at;
        at = std::min(text.find_first_not_of(characters, at), text.size());
        return at > begin;
    }
    bool One(std::string_view of) {
        const bool isOne = at < text.size() && of.find(text[at]) != std::string_view::npos;
        at += isOne ? 1 : 0;
        return isOne;
    }
    bool Number(std::size_t least, std::size_t most, int& value) {
        const std::size_t begin = at;
        for (value = 0; at - begin < most && IsDigit(Next()); ++at) {
            value = value * 10 + (text[at] - '0');
        }
        return at - begin >= least;
    }
    bool Month(int& month) {
        std::array<char, 3> name{};
        for (char& c : name) {
            c = static_cast<char>(Next() | 0x20);
            ++at;
        }
        const std::size_t found = kMonths.find(std::string_view(name.data(), name.size()));
        month = static_cast<int>(found / name.size()) + 1;
        return found != std::string_view::npos && found % name.size() == 0;
    }
    bool Form(std::string_view form, Fields& fields) {
        const bool isTight = form.find_first_not_of(kFields) == std::string_view::npos;
        return std::all_of(form.begin(), form.end(), [&](const char& part) {
            const std::size_t field = kFields.find(part);
            return part == 'Y'                       ? Number(4, 4, fields[kYear])
                   : part == 'N'                     ? Month(fields[kMonth])
                   : part == ' '                     ? Skip(" ,")
                   : field != std::string_view::npos ? Number(isTight ? 2 : 1, 2, fields[field])
                                                     : One({&part, 1});
        });
    }
};

/// Days since 1 January 1970.
std::int64_t Days(const Fields& date) {
    const int year = date[kMonth] <= 2 ? date[kYear] - 1 : date[kYear];
    const int era = year / 400;
    const int yearOfEra = year - era * 400;
    const int month = date[kMonth] + (date[kMonth] > 2 ? -3 : 9);
    const int dayOfYear = (153 * month + 2) / 5 + date[kDay] - 1;
    const int dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return std::int64_t{era} * 146'097 + dayOfEra - 719'468;
}

bool IsDate(const Fields& f) {
    return f[kMonth] >= 1 && f[kMonth] <= 12 && f[kDay] >= 1 && f[kDay] <= 31 && f[kYear] >= 1970;
}

bool ReadTime(Cursor& cursor, std::string_view form, std::int64_t& micros) {
    Fields f{};
    if (!cursor.Form(form, f) || f[kHour] > 23 || f[kMinute] > 59 || f[kSecond] > 60 ||
        IsDigit(cursor.Next())) {
        return false;
    }
    micros = (std::int64_t{f[kHour]} * 3600 + f[kMinute] * 60 + f[kSecond]) * kMicrosPerSecond;
    Cursor more = cursor;
    if (more.One(".,:") && IsDigit(more.Next())) {
        for (std::int64_t unit = kMicrosPerSecond / 10; IsDigit(more.Next()); unit /= 10) {
            micros += (more.text[more.at++] - '0') * unit;
        }
        cursor = more;
    }
    more = cursor;
    more.Skip(" ");
    const bool isAfternoon = (more.Next() | 0x20) == 'p';
    if (more.One("APap") && more.One("Mm") && !IsWord(more.Next())) {
        micros += ((isAfternoon ? 12 : 0) - (f[kHour] == 12 ? 12 : 0)) * 3600 * kMicrosPerSecond;
        cursor = more;
    }
    for (const std::string_view offset : kOffsets) {
        more = cursor;
        more.Skip(" ");
        if (more.Form(offset, f) && !IsWord(more.Next())) {
            cursor = more;
            break;
        }
    }
    return true;
}

std::optional<Clock> ClockAt(std::string_view prefix, std::size_t at) {
    Clock clock{at};
    for (const std::string_view form : kDates) {
        Cursor date{prefix, at};
        Fields fields{kLeapYear};
        if (!date.Form(form, fields) || !IsDate(fields)) {
            continue;
        }
        date.Skip(kBeforeTime);
        for (const std::string_view time : kTimes) {
            Cursor cursor = date;
            if (ReadTime(cursor, time, clock.micros)) {
                clock.micros += Days(fields) * kMicrosPerDay;
                clock.hasDate = true;
                clock.end = cursor.at;
                return clock;
            }
        }
    }
    // Six digits alone are more often something else.
    Cursor cursor{prefix, at};
    const bool isTime = ReadTime(cursor, kTimes[0], clock.micros);
    clock.end = cursor.at;
    return isTime ? std::optional(clock) : std::nullopt;
}

}  // namespace

std::optional<Clock> FindClock(std::string_view prefix) {
    std::optional<Clock> clock;
    for (std::size_t at = 0; at < prefix.size() && !clock; ++at) {
        if (IsWord(prefix[at]) && (at == 0 || !IsWord(prefix[at - 1]))) {
            clock = ClockAt(prefix, at);
        }
    }
    return clock;
}

}  // namespace lab::explain
