#include "lab/explain/Prefix.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <map>

#include "lab/Words.h"

namespace lab::explain {

namespace {

constexpr std::size_t kMostColumns = 24;
constexpr std::string_view kSeparators = " \t\x1B[](){}<>|,;:=\"'#/\\";
constexpr std::string_view kColour = "\x1B[";  // begins the code of a terminal's colour
constexpr std::string_view kDigits = "0123456789";
constexpr std::size_t kLongestName = 64;  // of a process or a thread; the rest is cut
constexpr std::size_t kMostValues = 256;  // of a column that is a process or a thread
constexpr std::size_t kLeastChanges = 8;  // of a number that is the time
constexpr double kLeastEpoch = 1e9;       // a number so large is the time without more changes
constexpr std::size_t kMostLevels = 8;    // words of a column that is the level

/// A prefix without its clock time, cut at separators. The views are parts of the prefix.
struct Columns {
    std::array<std::string_view, kMostColumns> values;
    std::size_t count = 0;
    std::optional<Clock> clock;
    const LogLine* line = nullptr;  ///< of a sample
};

/// A place in a source, such as x.cpp:100:7, x.cpp(100) or Sink::Write:100.
bool IsSource(std::string_view word, std::string_view between) {
    const std::size_t point = std::min(word.rfind('.'), word.size());
    const std::string_view ending = word.substr(point);
    return between == "::" || (point > 0 && ending.size() >= 2 && ending.size() <= 5 &&
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
        const bool isQuoted = !between.empty() && between.back() == '"';
        end = std::min(isQuoted ? text.find('"', at) : text.find_first_of(kSeparators, at),
                       text.size());
        const std::string_view word = text.substr(at, end - at);
        const bool isNumber = word.find_first_not_of(kDigits) == std::string_view::npos;
        const bool isColour = between.find(kColour) != std::string_view::npos;
        if (isColour || (isAfterSource && isNumber && (between.size() == 1 || between == ", "))) {
            continue;
        }
        isAfterSource = IsSource(word, between) || (isAfterSource && word == "line");
        columns.values[columns.count++] = word;
    }
}

Columns ColumnsOf(std::string_view prefix, bool mayHaveClock = true) {
    Columns columns;
    columns.clock = mayHaveClock ? FindClock(prefix) : std::nullopt;
    const std::string_view clock =
        columns.clock ? columns.clock->text : prefix.substr(prefix.size());
    const auto begin = static_cast<std::size_t>(clock.data() - prefix.data());
    Split(prefix.substr(0, begin), columns);
    Split(prefix.substr(begin + clock.size()), columns);
    return columns;
}

/// Nothing but digits with one point or none.
std::optional<double> AsNumber(std::string_view text) {
    const bool isNumber = text.find_first_not_of("0123456789.") == std::string_view::npos &&
                          text.find_first_of("0123456789") != std::string_view::npos &&
                          std::count(text.begin(), text.end(), '.') <= 1;
    return isNumber ? std::make_optional(std::strtod(std::string(text).c_str(), nullptr))
                    : std::nullopt;
}

/// An identifier of a process or thread as programs print it: 4711, 0x1A2C, 1a2c, T12. One digit is
/// more often a level.
bool LooksLikeId(std::string_view text) {
    text.remove_prefix(text.substr(0, 2) == "0x" ? 2 : 0);
    const auto isOther = [](unsigned char c) { return std::isxdigit(c) == 0; };
    return text.find_first_of(kDigits) != std::string_view::npos && text.size() > 1 &&
           text.find('.') == std::string_view::npos &&
           std::count_if(text.begin(), text.end(), isOther) <= 1;
}

// Microseconds in one unit of a number that is the time.
double UnitOf(std::string_view text, bool isNamedT) {
    const double value = AsNumber(text).value_or(0);
    const std::size_t digits = text.size() - std::min(text.find('.'), text.size());
    return value >= 1e18                                       ? 1e-3  // nanoseconds since 1970
           : value >= 1e17                                     ? 0.1   // the system time of Windows
           : value >= 1e15                                     ? 1
           : value >= 1e12                                     ? 1e3
           : (value >= kLeastEpoch || digits > 3) && !isNamedT ? 1e6
                                                               : 1e3;
}

/// Everything that is known of one column.
struct Column {
    struct Value {
        std::bitset<8> kinds;   // of threads
        std::bitset<2> levels;  // of its lines: warning, error
    };
    std::map<std::string_view, Value> values;
    std::size_t seen = 0;
    std::size_t numbers = 0;
    std::size_t fractions = 0;
    std::size_t changes = 0;
    std::size_t falls = 0;
    std::size_t ids = 0;
    double last = 0;
    std::string_view lastValue;

    void Look(std::string_view value, const LogLine& line) {
        const ThreadKind thread = line.match.meaning->thread;
        Value& of = values[value];
        of.kinds.set(static_cast<std::size_t>(thread), thread != ThreadKind::kAny);
        of.levels.set(line.isError ? 1 : 0);
        ids += LooksLikeId(value) ? 1 : 0;
        changes += seen > 0 && value != lastValue ? 1 : 0;
        lastValue = value;
        if (const auto number = AsNumber(value)) {
            ++numbers;
            fractions += value.find('.') != std::string_view::npos ? 1 : 0;
            falls += *number < last ? 1 : 0;
            last = *number;
        }
        ++seen;
    }
    bool IsConstant() const { return values.size() == 1; }
    // A number of the line, for example, is different on every line.
    bool IsRepeated() const { return values.size() <= kMostValues && values.size() * 2 <= seen; }
    /// To a value that was there before the last one.
    bool Returns() const { return changes >= values.size(); }
    bool IsLevel() const {
        std::bitset<2> levels;
        for (const auto& [value, of] : values) {
            levels |= of.levels;
        }
        return levels.all() && values.size() <= kMostLevels &&
               !Any(values, [](auto& one) { return one.second.levels.all(); });
    }
    /// Its values with threads of several kinds.
    std::size_t Mixed() const {
        return static_cast<std::size_t>(std::count_if(
            values.begin(), values.end(), [](auto& one) { return one.second.kinds.count() > 1; }));
    }
    /// How well its values keep kinds of thread apart.
    std::size_t SeparatedKinds() const {
        std::bitset<8> all;
        for (const auto& [value, of] : values) {
            all |= of.kinds;
        }
        return Mixed() * 20 > values.size() ? 0 : all.count();
    }
    // The numbers of threads go up and down.
    bool IsTime() const {
        const bool repeats = (seen - changes) * 20 >= seen;
        return numbers == seen && !IsLevel() && std::min(changes - falls, falls) * 20 <= changes &&
               (last >= kLeastEpoch || (changes >= kLeastChanges && (fractions > 0 || repeats)));
    }
};

/// p, t or c: the word says that the next column is a process, thread or clock.
char NameOf(const Column& before) {
    constexpr std::array<std::string_view, 3> kNames{"p pid process processid process_id proc ",
                                                     "t tid thread threadid thread_id thr ",
                                                     "c t time ts timestamp "};
    std::string word = " ";
    for (const char c : before.IsConstant() ? before.lastValue : "") {
        word += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    word += ' ';
    const auto found = std::find_if(kNames.begin(), kNames.end(), [&](std::string_view names) {
        return names.find(word) != std::string_view::npos;
    });
    return found == kNames.end() ? '\0' : found->front();
}

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
    const auto value = [&](std::size_t c) { return columns.values[c].substr(0, kLongestName); };
    if (m_time) {
        origin.time = value(*m_time);
        const double micros = AsNumber(origin.time).value_or(-1) * m_microsPerUnit;
        if (micros >= 0 && micros < 9e18) {
            origin.micros = std::llround(micros);
        }
    }
    if (m_process) {
        origin.process = m_lastProcess = value(*m_process);
    }
    if (m_thread) {
        origin.thread = value(*m_thread);
    }
    return origin;
}

PrefixLayout::PrefixLayout(const std::vector<LogLine>& sample) {
    std::vector<Columns> lines;
    std::map<std::size_t, std::size_t> counts{{0, 0}};
    std::size_t clocks = 0;
    for (const LogLine& line : sample) {
        lines.push_back(ColumnsOf(line.prefix));
        lines.back().line = &line;
        ++counts[lines.back().count];
        clocks += lines.back().clock ? 1 : 0;
    }
    m_hasClock = clocks * 2 > lines.size();
    m_columns = std::max_element(counts.begin(), counts.end(), [](auto& a, auto& b) {
                    return a.second < b.second;
                })->first;
    std::vector<Column> columns(m_columns);
    const auto isOther = [&](const Columns& line) { return line.count != m_columns; };
    lines.erase(std::remove_if(lines.begin(), lines.end(), isOther), lines.end());
    for (const Columns& line : lines) {
        for (std::size_t c = 0; c < m_columns; ++c) {
            columns[c].Look(line.values[c], *line.line);
        }
    }

    // First what names or shows itself.
    std::vector<std::size_t> open;
    for (std::size_t c = 0; c < columns.size(); ++c) {
        const Column& column = columns[c];
        const char name = c == 0 ? '\0' : NameOf(columns[c - 1]);
        const bool isClock = name == 'c' && column.numbers == column.seen;
        if (name == 'p') {
            m_process = c;
        } else if (name == 't') {
            m_thread = c;
        } else if (!HasTime() && (isClock || column.IsTime())) {
            m_time = c;
            m_microsPerUnit = UnitOf(column.lastValue, isClock && columns[c - 1].lastValue == "t");
        } else if (!column.IsLevel() && column.IsRepeated()) {
            open.push_back(c);
        }
    }
    // A value that only moves on is no thread: more likely a time that nobody knows.
    std::size_t best = m_thread ? kMostColumns : 1;
    for (const std::size_t c : open) {
        if (columns[c].Returns() && columns[c].SeparatedKinds() > best) {
            best = columns[c].SeparatedKinds();
            m_thread = c;
        }
    }
    std::vector<std::size_t> ids;
    std::copy_if(open.begin(), open.end(), std::back_inserter(ids),
                 [&](std::size_t c) { return columns[c].ids == columns[c].seen && m_thread != c; });
    if (!m_thread && ids.size() >= (m_process ? 1U : 2U) && columns[ids.back()].Mixed() == 0) {
        m_thread = ids.back();
    }
    const auto isSameForAThread = [&](std::size_t c) {
        std::map<std::string_view, std::string_view> processes;
        return std::all_of(lines.begin(), lines.end(), [&](const Columns& line) {
            const std::string_view process = line.values[c];
            return !m_thread ||
                   processes.emplace(line.values[*m_thread], process).first->second == process;
        });
    };
    // Several processes write in turns, and two may have threads of the same name. A number comes
    // before a name.
    const auto find = [&](std::size_t c) {
        if (!m_process && c != m_thread && (columns[c].IsConstant() || columns[c].Returns()) &&
            (isSameForAThread(c) || columns[c].Mixed() == columns[c].values.size())) {
            m_process = c;
        }
    };
    std::for_each(ids.rbegin(), ids.rend(), find);
    for (const std::size_t c : open) {
        if (m_thread && !columns[c].IsConstant()) {
            find(c);
        }
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
