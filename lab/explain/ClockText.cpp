#include "lab/explain/ClockText.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace lab::explain {

namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

struct Date {
    int year = 2000;  // of a date without one: a leap year
    int month = 1;
    int day = 1;
};

/// Days since 1 January 1970.
std::int64_t Days(const Date& date) {
    const int year = date.month <= 2 ? date.year - 1 : date.year;
    const int era = year / 400;
    const int yearOfEra = year - era * 400;
    const int dayOfYear = (153 * (date.month + (date.month > 2 ? -3 : 9)) + 2) / 5 + date.day - 1;
    const int dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return std::int64_t{era} * 146'097 + dayOfEra - 719'468;
}

bool IsDate(const Date& date) {
    return date.month >= 1 && date.month <= 12 && date.day >= 1 && date.day <= 31 &&
           date.year >= 1970 && date.year <= 9999;
}

/// A place in a text that moves on over what it recognises. A failed step leaves it where it was.
class Cursor {
  public:
    Cursor(std::string_view text, std::size_t at) : m_text(text), m_at(at) {}
    std::size_t At() const { return m_at; }
    char Next() const { return m_at < m_text.size() ? m_text[m_at] : '\0'; }

    bool Number(std::size_t least, std::size_t most, int& value) {
        std::size_t end = m_at;
        value = 0;
        while (end < m_text.size() && end - m_at < most && IsDigit(m_text[end])) {
            value = value * 10 + (m_text[end++] - '0');
        }
        if (end - m_at < least) {
            return false;
        }
        m_at = end;
        return true;
    }
    bool One(std::string_view of, char* which = nullptr) {
        if (m_at >= m_text.size() || of.find(m_text[m_at]) == std::string_view::npos) {
            return false;
        }
        if (which != nullptr) {
            *which = m_text[m_at];
        }
        ++m_at;
        return true;
    }
    bool Month(int& month) {
        constexpr std::string_view kNames = "janfebmaraprmayjunjulaugsepoctnovdec";
        if (m_text.size() - m_at < 3) {
            return false;
        }
        std::array<char, 3> name{};
        for (std::size_t i = 0; i < name.size(); ++i) {
            name[i] = static_cast<char>(m_text[m_at + i] | 0x20);
        }
        const std::size_t found = kNames.find(std::string_view(name.data(), name.size()));
        if (found == std::string_view::npos || found % 3 != 0) {
            return false;
        }
        month = static_cast<int>(found / 3) + 1;
        m_at += 3;
        return true;
    }
    void Skip(std::string_view characters) {
        while (One(characters)) {
        }
    }

  private:
    std::string_view m_text;
    std::size_t m_at;
};

bool ReadDate(Cursor& cursor, Date& date) {
    const Cursor begin = cursor;
    char first = 0;
    char second = 0;
    if (cursor.Month(date.month)) {  // Nov 25, Nov 25 2026
        cursor.Skip(" ");
        if (!cursor.Number(1, 2, date.day)) {
            return false;
        }
        const Cursor day = cursor;
        cursor.Skip(" ,");
        if (!cursor.Number(4, 4, date.year) || cursor.Next() == ':') {
            cursor = day;
            date.year = Date().year;
        }
        return true;
    }
    if (cursor.Number(4, 4, date.year)) {
        if (cursor.One("-/.", &first) && cursor.Number(1, 2, date.month) &&
            cursor.One({&first, 1}) && cursor.Number(1, 2, date.day)) {
            return true;
        }
        cursor = begin;
        return cursor.Number(4, 4, date.year) && cursor.Number(2, 2, date.month) &&
               cursor.Number(2, 2, date.day);
    }
    int one = 0;
    int other = 0;
    if (!cursor.Number(1, 2, one) || !cursor.One("-/. ", &first)) {
        return false;
    }
    if (cursor.Month(date.month)) {  // 25 Nov 2026
        date.day = one;
        return cursor.One({&first, 1}) && cursor.Number(4, 4, date.year);
    }
    if (first == ' ' || !cursor.Number(1, 2, other)) {
        return false;
    }
    if (cursor.One({&first, 1}, &second)) {
        const bool isMonthFirst = (first == '/' && one <= 12) || other > 12;
        date.month = isMonthFirst ? one : other;
        date.day = isMonthFirst ? other : one;
        return cursor.Number(4, 4, date.year);
    }
    date = {Date().year, one, other};  // 11-25
    return first == '-';
}

bool ReadTime(Cursor& cursor, std::int64_t& micros) {
    int hour = 0;
    int minute = 0;
    int second = 0;
    const Cursor begin = cursor;
    const bool hasColons = cursor.Number(1, 2, hour) && cursor.One(":") &&
                           cursor.Number(2, 2, minute) && cursor.One(":") &&
                           cursor.Number(2, 2, second);
    if (!hasColons) {
        cursor = begin;
        if (!cursor.Number(2, 2, hour) || !cursor.Number(2, 2, minute) ||
            !cursor.Number(2, 2, second)) {
            return false;
        }
    }
    if (hour > 23 || minute > 59 || second > 60 || IsDigit(cursor.Next())) {
        return false;
    }
    micros = (std::int64_t{hour} * 3600 + minute * 60 + second) * kMicrosPerSecond;
    const Cursor whole = cursor;
    if (cursor.One(".,:") && IsDigit(cursor.Next())) {
        int digit = 0;
        for (std::int64_t unit = kMicrosPerSecond / 10; cursor.Number(1, 1, digit); unit /= 10) {
            micros += digit * unit;
        }
    } else {
        cursor = whole;
    }
    const Cursor end = cursor;
    char half = 0;
    cursor.Skip(" ");
    if (cursor.One("APap", &half) && cursor.One("Mm") && !IsLetter(cursor.Next())) {
        const bool isAfternoon = half == 'P' || half == 'p';
        const std::int64_t hours = (isAfternoon ? 12 : 0) - (hour == 12 ? 12 : 0);
        micros += hours * 3600 * kMicrosPerSecond;
    } else {
        cursor = end;
    }
    return true;
}

void SkipOffset(Cursor& cursor) {
    const Cursor begin = cursor;
    int number = 0;
    if (cursor.One("Z") && !IsLetter(cursor.Next())) {
        return;
    }
    cursor = begin;
    cursor.Skip(" ");
    if (cursor.One("+-") && cursor.Number(2, 2, number)) {
        const Cursor hours = cursor;
        cursor.One(":");
        if (cursor.Number(2, 2, number) && !IsDigit(cursor.Next())) {
            return;
        }
        if (!IsDigit(hours.Next())) {
            cursor = hours;
            return;
        }
    }
    cursor = begin;
}

std::optional<ClockText> ClockAt(std::string_view prefix, std::size_t at) {
    ClockText clock;
    clock.begin = at;
    Cursor cursor(prefix, at);
    Date date;
    if (ReadDate(cursor, date) && IsDate(date)) {
        cursor.Skip("T_-, :");
        clock.hasDate = ReadTime(cursor, clock.micros);
        clock.micros += Days(date) * kMicrosPerDay;
    }
    if (!clock.hasDate) {
        cursor = Cursor(prefix, at);
        // Six digits alone are more often something else.
        const std::size_t colon = prefix.substr(at, 3).find(':');
        if (colon == std::string_view::npos || !ReadTime(cursor, clock.micros)) {
            return std::nullopt;
        }
    }
    SkipOffset(cursor);
    clock.end = cursor.At();
    return clock;
}

}  // namespace

std::optional<ClockText> FindClock(std::string_view prefix) {
    for (std::size_t at = 0; at < prefix.size(); ++at) {
        const char c = prefix[at];
        const char before = at == 0 ? ' ' : prefix[at - 1];
        if ((!IsDigit(c) && !IsLetter(c)) || IsDigit(before) || IsLetter(before)) {
            continue;
        }
        if (const auto clock = ClockAt(prefix, at)) {
            return clock;
        }
    }
    return std::nullopt;
}

}  // namespace lab::explain
