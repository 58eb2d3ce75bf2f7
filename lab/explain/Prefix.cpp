#include "lab/explain/Prefix.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <map>

#include "lab/explain/Clock.h"

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
constexpr unsigned kBothLevels = 3;

/// A prefix without its clock time, cut at separators. The views are parts of the prefix.
struct Columns {
    std::array<std::string_view, kMostColumns> values;
    std::size_t count = 0;
    std::optional<Clock> clock;
    std::string_view clockText;
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
        const bool isColour = between.size() >= kColour.size() &&
                              between.substr(between.size() - kColour.size()) == kColour;
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
    const std::size_t begin = columns.clock ? columns.clock->begin : prefix.size();
    const std::size_t end = columns.clock ? columns.clock->end : prefix.size();
    columns.clockText = prefix.substr(begin, end - begin);
    Split(prefix.substr(0, begin), columns);
    Split(prefix.substr(end), columns);
    return columns;
}

/// Nothing but digits with one point or none.
std::optional<double> AsNumber(std::string_view text) {
    const std::size_t whole = std::min(text.find_first_not_of(kDigits), text.size());
    const std::size_t fraction = std::min(whole + 1, text.size());
    const bool isNumber = text.size() > fraction - whole &&
                          (whole == text.size() || text[whole] == '.') &&
                          text.find_first_not_of(kDigits, fraction) == std::string_view::npos;
    return isNumber ? std::optional(std::strtod(std::string(text).c_str(), nullptr)) : std::nullopt;
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
        unsigned kinds = 0;   // of threads, as bits
        unsigned levels = 0;  // 1 warn, 2 error
        bool Mixes() const { return (kinds & (kinds - 1)) != 0; }
    };
    std::map<std::string_view, Value> values;
    std::size_t seen = 0;
    std::size_t numbers = 0;
    std::size_t fractions = 0;
    std::size_t rises = 0;
    std::size_t falls = 0;
    std::size_t ids = 0;
    std::size_t returns = 0;  // to a value that was there before the last one
    double last = 0;
    std::string_view lastValue;
    char name = 0;  // p, t or c: the word before it says that it is a process, thread or clock

    void Look(std::string_view value, ThreadKind thread, bool isError) {
        returns += value != lastValue && values.count(value) > 0 ? 1 : 0;
        lastValue = value;
        values[value].kinds |= thread == ThreadKind::kAny ? 0 : 1U << static_cast<unsigned>(thread);
        values[value].levels |= isError ? 2U : 1U;
        ids += LooksLikeId(value) ? 1 : 0;
        const auto number = AsNumber(value);
        numbers += number ? 1 : 0;
        fractions += number && value.find('.') != std::string_view::npos ? 1 : 0;
        rises += number && seen > 0 && *number > last ? 1 : 0;
        falls += number && seen > 0 && *number < last ? 1 : 0;
        last = number.value_or(last);
        ++seen;
    }
    bool IsConstant() const { return values.size() == 1; }
    // A number of the line, for example, is different on every line.
    bool IsRepeated() const { return values.size() <= kMostValues && values.size() * 2 <= seen; }
    bool IsLevel() const {
        unsigned all = 0;
        for (const auto& [value, of] : values) {
            all |= of.levels == kBothLevels ? kBothLevels + 1 : of.levels;
        }
        return all == kBothLevels && values.size() <= 8;
    }
    std::size_t Mixed() const {
        return static_cast<std::size_t>(std::count_if(
            values.begin(), values.end(), [](const auto& one) { return one.second.Mixes(); }));
    }
    /// How well its values keep kinds of thread apart.
    int SeparatedKinds() const {
        unsigned all = 0;
        for (const auto& [value, of] : values) {
            all |= of.kinds;
        }
        int kinds = 0;
        for (; all != 0; all &= all - 1) {
            ++kinds;
        }
        return Mixed() * 20 > values.size() ? 0 : kinds;
    }
    // The numbers of threads go up and down.
    bool IsTime() const {
        const std::size_t changes = rises + falls;
        const bool repeats = (seen - changes) * 20 >= seen;
        return numbers == seen && !IsLevel() && std::min(rises, falls) * 20 <= changes &&
               (last >= kLeastEpoch || (changes >= kLeastChanges && (fractions > 0 || repeats)));
    }
};

char NameOf(const Column& before) {
    static const std::map<std::string, char> kNames{
        {"pid", 'p'}, {"process", 'p'}, {"processid", 'p'}, {"process_id", 'p'}, {"proc", 'p'},
        {"tid", 't'}, {"thread", 't'},  {"threadid", 't'},  {"thread_id", 't'},  {"thr", 't'},
        {"t", 'c'},   {"time", 'c'},    {"ts", 'c'},        {"timestamp", 'c'}};
    std::string word(before.IsConstant() ? before.lastValue : "");
    std::transform(word.begin(), word.end(), word.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const auto found = kNames.find(word);
    return found == kNames.end() ? '\0' : found->second;
}

}  // namespace

PrefixLayout PrefixLayout::Again() const {
    PrefixLayout layout = *this;
    layout.m_lastProcess = m_firstProcess;
    layout.m_dayOffset = layout.m_lastOfDay = 0;
    return layout;
}

Origin PrefixLayout::Read(std::string_view prefix) {
    Origin origin;
    origin.process = m_lastProcess;
    if (prefix.empty()) {
        return origin;
    }
    const Columns columns = ColumnsOf(prefix, m_hasClock);
    if (columns.clock) {
        origin.time = columns.clockText;
        std::int64_t micros = columns.clock->micros;
        if (!columns.clock->hasDate) {
            if (micros + kMicrosPerDay / 2 < m_lastOfDay) {
                m_dayOffset += kMicrosPerDay;  // midnight has passed
                m_lastOfDay = micros;
            }
            m_lastOfDay = std::max(m_lastOfDay, micros);
            micros += m_dayOffset;
        }
        origin.micros = micros;
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
        origin.process = value(*m_process);
        m_lastProcess = origin.process;
    }
    origin.thread = m_thread ? value(*m_thread) : std::string_view();
    return origin;
}

void PrefixSample::Add(const LogLine& line, unsigned file) {
    m_lines.push_back({file, line.number, std::string(line.prefix), std::string(line.match.text),
                       line.match.meaning->thread, line.isError});
}

PrefixLayout PrefixSample::Find() const {
    PrefixLayout layout;
    std::vector<Columns> all;
    std::map<std::size_t, std::size_t> counts{{0, 0}};
    std::size_t clocks = 0;
    for (const Line& line : m_lines) {
        all.push_back(ColumnsOf(line.prefix));
        ++counts[all.back().count];
        clocks += all.back().clock ? 1 : 0;
    }
    layout.m_hasClock = clocks * 2 > all.size();
    layout.m_columns = std::max_element(counts.begin(), counts.end(), [](auto& a, auto& b) {
                           return a.second < b.second;
                       })->first;
    std::vector<Column> columns(layout.m_columns);
    for (std::size_t line = 0; line < all.size(); ++line) {
        for (std::size_t c = 0; c < columns.size() && all[line].count == columns.size(); ++c) {
            columns[c].Look(all[line].values[c], m_lines[line].thread, m_lines[line].isError);
        }
    }

    // First what names or shows itself.
    std::vector<std::size_t> open;
    for (std::size_t c = 0; c < columns.size(); ++c) {
        Column& column = columns[c];
        column.name = c == 0 ? '\0' : NameOf(columns[c - 1]);
        const bool isClock = column.name == 'c' && column.numbers == column.seen;
        if (column.name == 'p') {
            layout.m_process = c;
        } else if (column.name == 't') {
            layout.m_thread = c;
        } else if (!layout.m_hasClock && !layout.m_time && (isClock || column.IsTime())) {
            layout.m_time = c;
            layout.m_microsPerUnit =
                UnitOf(column.lastValue, isClock && columns[c - 1].lastValue == "t");
        } else if (!column.IsLevel() && column.IsRepeated()) {
            open.push_back(c);
        }
    }
    // A value that only moves on is no thread: more likely a time that nobody knows.
    int best = layout.m_thread ? static_cast<int>(kMostColumns) : 1;
    for (const std::size_t c : open) {
        if (columns[c].returns > 0 && columns[c].SeparatedKinds() > best) {
            best = columns[c].SeparatedKinds();
            layout.m_thread = c;
        }
    }
    std::vector<std::size_t> ids;
    std::copy_if(open.begin(), open.end(), std::back_inserter(ids), [&](std::size_t c) {
        return columns[c].ids == columns[c].seen && layout.m_thread != c;
    });
    if (!layout.m_thread && ids.size() >= (layout.m_process ? 1U : 2U) &&
        columns[ids.back()].Mixed() == 0) {
        layout.m_thread = ids.back();
        ids.pop_back();
    }
    const auto isSameForAThread = [&](std::size_t c) {
        std::map<std::string_view, std::string_view> processes;
        return std::all_of(all.begin(), all.end(), [&](const Columns& line) {
            return line.count != columns.size() || !layout.m_thread ||
                   processes.emplace(line.values[*layout.m_thread], line.values[c]).first->second ==
                       line.values[c];
        });
    };
    // Several processes write in turns, and two may have threads of the same name. A number comes
    // before a name.
    const auto isProcess = [&](std::size_t c) {
        return c != layout.m_thread && (columns[c].IsConstant() || columns[c].returns > 0) &&
               (isSameForAThread(c) || columns[c].Mixed() == columns[c].values.size());
    };
    for (auto c = ids.rbegin(); c != ids.rend() && !layout.m_process; ++c) {
        layout.m_process = isProcess(*c) ? std::optional(*c) : std::nullopt;
    }
    for (const std::size_t c : open) {
        if (!layout.m_process && layout.m_thread && !columns[c].IsConstant() && isProcess(c)) {
            layout.m_process = c;
        }
    }
    FindTimes(layout);
    return layout.Again();
}

// Whole seconds, the order of the lines, and the process of the first one.
void PrefixSample::FindTimes(PrefixLayout& layout) const {
    std::size_t rises = 0;
    std::size_t falls = 0;
    std::optional<std::int64_t> last;
    layout.m_hasWholeSeconds = layout.HasTime();
    for (const Line& line : m_lines) {
        PrefixLayout fresh = layout;
        const Origin origin = fresh.Read(line.prefix);
        layout.m_hasWholeSeconds &= origin.micros.value_or(0) % kMicrosPerSecond == 0;
        rises += last && origin.micros > last ? 1 : 0;
        falls += last && origin.micros && origin.micros < last ? 1 : 0;
        last = origin.micros ? origin.micros : last;
        if (layout.m_firstProcess.empty()) {
            layout.m_firstProcess = origin.process;
        }
    }
    layout.m_isNewestFirst = falls >= kLeastChanges && rises * 20 <= falls;
}

}  // namespace lab::explain
