// Finds a date and a time in a prefix. Plain functions.
#include <algorithm>
#include <array>
#include <charconv>
#include <string>

#include "lab/explain/Prefix.h"

namespace lab::explain {

namespace {

// Y year, N month's name, M month, D day, h m s. A point may be / or - as well. A blank is one or
// several, or a comma; _ is what may stand between a date and a time.
constexpr std::array<std::string_view, 14> kForms{
    "Y.M.D_h:m:s", "Y.M.D_hms",   "YMD_h:m:s",   "YMD_hms",     "YMDhms",
    "M/D/Y_h:m:s", "D.M.Y_h:m:s", "D.N.Y_h:m:s", "D N Y_h:m:s", "N D Y_h:m:s",
    "N D_h:m:s Y", "N D_h:m:s",   "M-D_h:m:s",   "h:m:s"};
constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
constexpr std::size_t kMonthSize = 3;
constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kWord = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::string_view kFields = "YMDhms";
enum Field : std::uint8_t { kYear, kMonth, kDay, kHour, kMinute, kSecond };
using Fields = std::array<int, kFields.size()>;
constexpr Fields kLeast{1970, 1, 1, 0, 0, 0};
constexpr Fields kMost{9999, 12, 31, 23, 59, 60};
constexpr Fields kNoDate{2000, 1, 1, 0, 0, 0};  // a leap year

/// How many of these characters `text` begins with.
std::size_t Run(std::string_view text, std::string_view characters) {
    return std::min(text.find_first_not_of(characters), text.size());
}

int Month(std::string_view name) {
    const std::size_t found = kMonths.find(name);
    const bool isOne = name.size() == kMonthSize && found % kMonthSize == 0;
    return isOne ? static_cast<int>(found / kMonthSize) + 1 : 0;
}

/// Takes what `form` describes from the beginning of `text`, or nothing.
bool Take(std::string_view& text, std::string_view form, Fields& fields) {
    std::string_view rest = text;
    for (const char& part : form) {
        const std::size_t field = kFields.find(part == 'N' ? 'M' : part);
        bool isInRange = true;
        std::size_t size = part == ' '   ? Run(rest, " ,")
                           : part == '_' ? Run(rest, "T_-, :")
                           : part == '.' ? Run(rest.substr(0, 1), "./-")
                                         : Run(rest.substr(0, 1), {&part, 1});
        if (field < fields.size()) {
            const std::size_t most = part == 'Y' ? 4 : 2;
            size = part == 'N' ? std::min(rest.size(), kMonthSize)
                               : std::min(Run(rest, kDigits), most);
            int& value = fields[field] = part == 'N' ? Month(rest.substr(0, size)) : 0;
            std::from_chars(rest.data(), rest.data() + size, value);
            isInRange = value >= kLeast[field] && value <= kMost[field];
        }
        if (size == 0 || !isInRange) {
            return false;
        }
        rest.remove_prefix(size);
    }
    text = rest;
    return Run(rest, kDigits) == 0;
}

/// Days since the one of kNoDate.
std::int64_t Days(const Fields& date) {
    const int year = date[kMonth] <= 2 ? date[kYear] - 1 : date[kYear];
    const int month = date[kMonth] + (date[kMonth] > 2 ? -3 : 9);
    const int leapDays = year / 4 - year / 100 + year / 400;
    return year * 365 + leapDays + (153 * month + 2) / 5 + date[kDay] - 1 - 730'425;
}

/// What may follow the seconds: a fraction, AM or PM, an offset from UTC.
std::int64_t MicrosAfter(std::string_view& text, int hour) {
    std::int64_t micros = 0;
    if (Run(text.substr(0, 1), ".,:") > 0 && Run(text.substr(1), kDigits) > 0) {
        text.remove_prefix(1);
        for (std::int64_t unit = kMicrosPerSecond / 10; Run(text, kDigits) > 0; unit /= 10) {
            micros += (text[0] - '0') * unit;
            text.remove_prefix(1);
        }
    }
    const std::string_view half = text.substr(Run(text, " "));
    if (Run(half, "APap") == 1 && Run(half.substr(1), "Mm") == 1 && Run(half, kWord) == 2) {
        const std::int64_t hours = (Run(half, "Pp") == 1 ? 12 : 0) - (hour == 12 ? 12 : 0);
        micros += hours * 3600 * kMicrosPerSecond;
        text = half.substr(2);
    }
    const std::string_view zone = text.substr(Run(text, " "));
    const std::size_t size = Run(zone, "Z+-0123456789:");
    const bool isZone = Run(zone, "Z+-") == 1 && (size > 1) == (zone[0] != 'Z') && size <= 6;
    if (isZone && Run(zone.substr(size), kWord) == 0) {
        text = zone.substr(size);
    }
    return micros;
}

}  // namespace

std::optional<Clock> FindClock(std::string_view prefix) {
    for (std::size_t at = prefix.find_first_of(kWord); at != std::string_view::npos;
         at = prefix.find_first_of(kWord, prefix.find_first_not_of(kWord, at))) {
        for (const std::string_view form : kForms) {
            Fields f = kNoDate;
            std::string_view rest = prefix.substr(at);
            if (Take(rest, form, f)) {
                const std::int64_t minutes = (Days(f) * 24 + f[kHour]) * 60 + f[kMinute];
                const std::int64_t micros =
                    (minutes * 60 + f[kSecond]) * kMicrosPerSecond + MicrosAfter(rest, f[kHour]);
                const std::size_t size = prefix.size() - at - rest.size();
                return Clock{prefix.substr(at, size), micros, form != kForms.back()};
            }
        }
    }
    return std::nullopt;
}

}  // namespace lab::explain
