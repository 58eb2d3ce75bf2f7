#include "lab/explain/Prefix.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <cmath>
#include <cstdlib>
#include <map>

#include "lab/Words.h"

namespace lab::explain {

namespace {

constexpr std::size_t kMostColumns = 24;
constexpr std::string_view kSeparators = " \t[](){}<>|,;:=\"'#/\\";
constexpr std::string_view kDigits = "0123456789";
constexpr std::size_t kLongestName = 64;  // of a process or a thread; the rest is cut
constexpr std::size_t kMostValues = 256;  // of a column that is a process or a thread
constexpr std::size_t kLeastChanges = 8;  // of a number that is the time
constexpr double kLeastEpoch = 1e9;       // a number so large is the time without more changes

/// A prefix without its clock time, cut at separators. The views are parts of the prefix.
struct Columns {
    std::array<std::string_view, kMostColumns> values;
    std::size_t count = 0;
    std::optional<Clock> clock;
};

/// A place in a source, such as x.cpp:100:7, x.cpp(100) or Sink::Write:100.
bool IsSource(std::string_view word, std::string_view between) {
    const std::string_view ending = word.substr(std::min(word.rfind('.'), word.size()));
    return between == "::" || (ending.size() >= 2 && ending.size() <= 5 &&
                               std::isalpha(static_cast<unsigned char>(ending[1])) != 0);
}

void Split(std::string_view text, Columns& columns) {
    bool isAfterSource = false;  // its numbers look like a process
    for (std::size_t end = 0; columns.count < kMostColumns;) {
        const std::size_t at = std::min(text.find_first_not_of(kSeparators, end), text.size());
        const std::string_view between = text.substr(end, at - end);
        if (at == text.size()) {
            return;
        }
        end = std::min(text.find_first_of(kSeparators, at), text.size());
        const std::string_view word = text.substr(at, end - at);
        const bool isNumber = word.find_first_not_of(kDigits) == std::string_view::npos;
        if (isAfterSource && isNumber && (between.size() == 1 || between == ", ")) {
            continue;
        }
        isAfterSource = IsSource(word, between) || (isAfterSource && word == "line");
        columns.values[columns.count++] = word;
    }
}

Columns ColumnsOf(std::string_view prefix, bool mayHaveClock = true) {
    Columns columns;
    columns.clock = mayHaveClock ? FindClock(prefix) : std::nullopt;
    const std::string_view clock = columns.clock.value_or(Clock{prefix.substr(prefix.size())}).text;
    const auto begin = static_cast<std::size_t>(clock.data() - prefix.data());
    Split(prefix.substr(0, begin), columns);
    Split(prefix.substr(begin + clock.size()), columns);
    return columns;
}

/// Nothing but digits with one point or none.
std::optional<double> AsNumber(std::string_view text) {
    const bool isNumber = text.find_first_not_of("0123456789.") == std::string_view::npos &&
                          text.find_first_of(kDigits) != std::string_view::npos &&
                          text.find('.') == text.rfind('.');
    return isNumber ? std::make_optional(std::strtod(std::string(text).c_str(), nullptr))
                    : std::nullopt;
}

/// An identifier of a process or thread as programs print it: 4711, 0x1A2C, 1a2c. One digit or two
/// are more often a level.
bool LooksLikeId(std::string_view text) {
    text.remove_prefix(text.substr(0, 2) == "0x" ? 2 : 0);
    return text.size() > 2 && text.find_first_of(kDigits) != std::string_view::npos &&
           std::all_of(text.begin(), text.end(),
                       [](unsigned char c) { return std::isxdigit(c) != 0; });
}

/// Everything that is known of one column.
struct Column {
    std::map<std::string_view, std::bitset<8>> kinds;  // of threads, by value
    std::size_t seen = 0;
    std::size_t changes = 0;
    std::size_t falls = 0;
    bool areIds = true;
    bool areLevels = true;
    bool areNumbers = true;
    bool haveFractions = false;
    double last = 0;
    std::string_view lastValue;
    bool wasError = false;

    void Look(std::string_view value, const LogLine& line) {
        const ThreadKind thread = line.match.meaning->thread;
        kinds[value].set(static_cast<std::size_t>(thread), thread != ThreadKind::kAny);
        areLevels &= seen == 0 || (value != lastValue) == (line.isError != wasError);
        changes += seen++ > 0 && value != lastValue ? 1 : 0;
        lastValue = value;
        wasError = line.isError;
        const std::optional<double> number = AsNumber(value);
        areIds &= LooksLikeId(value);
        areNumbers &= number.has_value();
        haveFractions |= value.find('.') != std::string_view::npos;
        falls += number.value_or(last) < last ? 1 : 0;
        last = number.value_or(last);
    }
    /// A process or a thread. The level changes with the library's, a time moves on after a few
    /// lines, and a number of the line is different on every line.
    bool MayBeWriter() const {
        const std::size_t linesOfOne = changes > 0 && changes < kinds.size() ? 20 : 2;
        return (changes == 0 || !areLevels) && kinds.size() <= kMostValues &&
               kinds.size() * linesOfOne <= seen;
    }
    /// Its values with threads of several kinds.
    std::size_t Mixed() const {
        return static_cast<std::size_t>(std::count_if(
            kinds.begin(), kinds.end(), [](auto& one) { return one.second.count() > 1; }));
    }
    /// How well its values keep kinds of thread apart. One that only moves on is no thread: more
    /// likely a time that nobody knows.
    std::size_t SeparatedKinds() const {
        std::bitset<8> all;
        for (const auto& [value, of] : kinds) {
            all |= of;
        }
        return Mixed() * 20 > kinds.size() || changes < kinds.size() ? 0 : all.count();
    }
    // The numbers of threads go up and down.
    bool IsTime() const {
        const bool repeats = (seen - 1 - changes) * 20 >= seen;
        return areNumbers && std::min(changes - falls, falls) * 20 <= changes &&
               (last >= kLeastEpoch || (changes >= kLeastChanges && (haveFractions || repeats)));
    }
    /// Microseconds in one unit of a time.
    double Unit() const {
        const std::size_t point = std::min(lastValue.find('.'), lastValue.size());
        return last >= 1e18                                          ? 1e-3  // ns since 1970
               : last >= 1e17                                        ? 0.1   // Windows' system time
               : last >= 1e15                                        ? 1
               : last >= 1e12                                        ? 1e3
               : last >= kLeastEpoch || lastValue.size() - point > 3 ? 1e6
                                                                     : 1e3;
    }
};

}  // namespace

Origin PrefixLayout::Read(std::string_view prefix) {
    Origin origin;
    origin.process = m_lastProcess;
    const Columns columns = ColumnsOf(prefix, m_hasClock);
    if (columns.clock) {
        origin.time = columns.clock->text;
        origin.micros = columns.clock->micros;
        if (!columns.clock->hasDate) {
            const bool isNextDay = *origin.micros + m_dayOffset + kMicrosPerDay / 2 < m_latest;
            m_dayOffset += isNextDay ? kMicrosPerDay : 0;
            *origin.micros += m_dayOffset;
            m_latest = std::max(m_latest, *origin.micros);
        }
    }
    if (columns.count != m_columns) {
        return origin;
    }
    const auto value = [&](Place c) {
        return c ? columns.values[*c].substr(0, kLongestName) : std::string_view();
    };
    if (m_time) {
        origin.time = value(m_time);
        const double micros = AsNumber(origin.time).value_or(-1) * m_microsPerUnit;
        if (micros >= 0 && micros < 9e18) {
            origin.micros = std::llround(micros);
        }
    }
    origin.process = m_lastProcess = value(m_process);
    origin.thread = value(m_thread);
    return origin;
}

PrefixLayout::PrefixLayout(const std::vector<LogLine>& sample) {
    std::vector<Columns> lines;
    std::array<std::size_t, kMostColumns + 1> counts{};
    std::size_t clocks = 0;
    for (const LogLine& line : sample) {
        lines.push_back(ColumnsOf(line.prefix));
        ++counts.at(lines.back().count);
        clocks += lines.back().clock ? 1 : 0;
    }
    m_hasClock = clocks * 2 > lines.size();
    m_columns =
        static_cast<std::size_t>(std::max_element(counts.begin(), counts.end()) - counts.begin());
    std::vector<Column> columns(m_columns);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        for (std::size_t c = 0; c < m_columns && lines[i].count == m_columns; ++c) {
            columns[c].Look(lines[i].values[c], sample[i]);
        }
    }

    // What is not the time may be a thread by its kinds, or an id of a thread or a process.
    std::vector<std::size_t> ids;
    std::size_t separated = 1;
    for (std::size_t c = 0; c < m_columns; ++c) {
        const Column& column = columns[c];
        if (!HasTime() && column.IsTime()) {
            m_time = c;
            m_microsPerUnit = column.Unit();
        } else if (column.MayBeWriter()) {
            if (column.areIds) {
                ids.push_back(c);
            }
            if (column.SeparatedKinds() > separated) {
                separated = column.SeparatedKinds();
                m_thread = c;
            }
        }
    }
    const auto values = [&](std::size_t c) { return columns[c].kinds.size(); };
    const auto hasFewer = [&](std::size_t a, std::size_t b) { return values(a) < values(b); };
    if (!m_thread && ids.size() > 1) {  // a process has several threads
        m_thread = *std::max_element(ids.rbegin(), ids.rend(), hasFewer);
    }
    for (const std::size_t c : ids) {
        // A thread has several kinds where a listener calls the library, but the host's has one.
        const std::size_t leastMixed = !m_thread ? values(c) : values(c) == 1 ? 0 : 1;
        if (c != m_thread && columns[c].Mixed() >= leastMixed) {
            m_process = c;
        }
    }
    // The lab's own lines: {"t":milliseconds,"thread":"name"
    if (m_columns > 3 && columns[0].lastValue == "t" && columns[2].lastValue == "thread") {
        m_time = 1;
        m_microsPerUnit = 1000;
        m_thread = 3;
    }

    // Whole seconds, the order of the lines, and the process of the first one.
    std::size_t rises = 0;
    std::size_t falls = 0;
    Micros last;
    m_hasWholeSeconds = HasTime();
    PrefixLayout trial = *this;
    for (const LogLine& line : sample) {
        const Origin origin = trial.Read(line.prefix);
        m_hasWholeSeconds &= origin.micros.value_or(0) % kMicrosPerSecond == 0;
        rises += last && origin.micros > last ? 1 : 0;
        falls += last && origin.micros && origin.micros < last ? 1 : 0;
        last = origin.micros ? origin.micros : last;
        m_lastProcess = m_lastProcess.empty() ? origin.process : m_lastProcess;
    }
    m_isNewestFirst = falls >= kLeastChanges && rises * 20 <= falls;
}

}  // namespace lab::explain
