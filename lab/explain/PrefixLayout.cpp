#include "lab/explain/PrefixLayout.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <set>

#include "lab/explain/ClockText.h"
#include "lab/explain/PrefixColumns.h"

namespace lab::explain {

namespace {

constexpr std::size_t kLongestPrefix = 512;  // of a longer one, this much before the text
constexpr std::size_t kLongestName = 64;     // of a process or a thread; the rest is cut
constexpr std::size_t kMostValues = 256;     // of a column that is a process or a thread
constexpr std::size_t kLeastChanges = 8;     // of a number that is the time
constexpr double kLeastEpoch = 1e9;          // a number so large is the time without more changes

std::optional<double> AsNumber(std::string_view text) {
    // from_chars for double is not in every library that this is built with.
    double value = 0;
    double unit = 1;
    bool isFraction = false;
    bool hasDigit = false;
    for (const char c : text) {
        if (c == '.' && !isFraction) {
            isFraction = true;
        } else if (c >= '0' && c <= '9') {
            hasDigit = true;
            unit /= isFraction ? 10 : 1;
            value = isFraction ? value + (c - '0') * unit : value * 10 + (c - '0');
        } else {
            return std::nullopt;
        }
    }
    return hasDigit ? std::optional(value) : std::nullopt;
}

/// An identifier of a process or thread as programs print it: 4711, 0x1A2C, 1a2c, T12. One digit is
/// more often a level.
bool LooksLikeId(std::string_view text) {
    std::size_t digits = 0;
    std::size_t others = 0;
    if (text.substr(0, 2) == "0x") {
        text.remove_prefix(2);
    }
    for (const char c : text) {
        const bool isDigit = c >= '0' && c <= '9';
        const bool isHex = (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
        digits += isDigit ? 1 : 0;
        others += isDigit || isHex ? 0 : 1;
    }
    return digits > 0 && others <= 1 && text.size() > 1 && text.find('.') == std::string_view::npos;
}

std::string Lower(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
    }
    return lower;
}

// Microseconds in one unit of a number that is the time.
double UnitOf(std::string_view text, bool isNamedT) {
    const double value = AsNumber(text).value_or(0);
    const std::size_t point = text.find('.');
    const std::size_t digits = point == std::string_view::npos ? 0 : text.size() - point - 1;
    constexpr double kSeconds = 1e6;
    if (value >= 1e18) {
        return 1e-3;  // nanoseconds since 1970
    }
    if (value >= 1e17) {
        return 0.1;  // the system time of Windows
    }
    if (value >= 1e15) {
        return 1;
    }
    if (value >= 1e12) {
        return 1e3;
    }
    const bool isSeconds = value >= 1e9 || digits >= 3;
    return isSeconds && !isNamedT ? kSeconds : 1e3;
}

/// Everything that is known of one column.
struct Column {
    std::map<std::string_view, std::set<ThreadKind>> kinds;  // value -> kinds of thread
    std::map<std::string_view, unsigned> levels;             // value -> 1 warn, 2 error, 3 both
    std::size_t seen = 0;
    std::size_t numbers = 0;
    std::size_t changes = 0;
    std::size_t falls = 0;
    std::size_t countsLines = 0;
    std::size_t ids = 0;
    std::size_t returns = 0;  // to a value that was there before the last one
    double last = -1;
    std::string_view lastValue;
    bool IsConstant() const { return kinds.size() == 1; }
    bool IsNumber() const { return numbers == seen; }
    bool IsId() const { return ids == seen; }
    // A number of the line, for example, is different on every line.
    bool IsRepeated() const { return kinds.size() <= kMostValues && kinds.size() * 2 <= seen; }
    bool IsLevel() const {
        unsigned all = 0;
        for (const auto& [value, level] : levels) {
            if (level == 3) {
                return false;
            }
            all |= level;
        }
        return all == 3 && levels.size() <= 8;
    }
    /// Kinds of thread that its values keep apart; 0 when a value mixes kinds.
    std::size_t SeparatedKinds() const {
        std::set<ThreadKind> all;
        std::size_t mixed = 0;
        for (const auto& [value, of] : kinds) {
            mixed += of.size() > 1 ? 1 : 0;
            all.insert(of.begin(), of.end());
        }
        return mixed * 20 > kinds.size() ? 0 : all.size();
    }
    // Several processes write in turns; a value that only moves on is something else.
    bool CanBeProcess() const { return IsConstant() || returns > 0; }
    // The numbers of threads go up and down; a number of the line goes up by one each time.
    bool IsTime() const {
        return IsNumber() && falls * 20 <= changes &&
               (last >= kLeastEpoch || (changes >= kLeastChanges && countsLines * 10 < seen * 9));
    }
};

void Look(Column& column, std::string_view value, ThreadKind thread, bool isError) {
    ++column.seen;
    column.returns += value != column.lastValue && column.kinds.count(value) > 0 ? 1 : 0;
    column.lastValue = value;
    auto& kinds = column.kinds[value];
    if (thread != ThreadKind::kAny) {
        kinds.insert(thread);
    }
    column.levels[value] |= isError ? 2U : 1U;
    column.ids += LooksLikeId(value) ? 1 : 0;
    const auto number = AsNumber(value);
    if (!number) {
        return;
    }
    ++column.numbers;
    column.changes += *number != column.last ? 1 : 0;
    column.falls += *number < column.last ? 1 : 0;
    column.countsLines += *number == column.last + 1 ? 1 : 0;
    column.last = *number;
}

}  // namespace

std::string_view PrefixLayout::Shortened(std::string_view prefix) {
    return prefix.substr(prefix.size() - std::min(prefix.size(), kLongestPrefix));
}

PrefixLayout PrefixLayout::Again() const {
    PrefixLayout layout = *this;
    layout.m_progress = {m_firstProcess};
    return layout;
}

Origin PrefixLayout::Read(std::string_view prefix) {
    Origin origin;
    origin.process = m_progress.process;
    if (prefix.empty()) {
        return origin;
    }
    const Columns columns = ColumnsOf(Shortened(prefix));
    if (m_hasClock && columns.clock) {
        origin.time = columns.clockText;
        std::int64_t micros = columns.clock->micros;
        if (!columns.clock->hasDate) {
            if (micros + kMicrosPerDay / 2 < m_progress.lastOfDay) {
                m_progress.dayOffset += kMicrosPerDay;  // midnight has passed
                m_progress.lastOfDay = micros;
            }
            m_progress.lastOfDay = std::max(m_progress.lastOfDay, micros);
            micros += m_progress.dayOffset;
        }
        origin.micros = micros;
    }
    if (columns.count != m_columns) {
        return origin;
    }
    if (m_time && !origin.micros) {
        origin.time = columns.values[*m_time].substr(0, kLongestName);
        if (const auto number = AsNumber(origin.time)) {
            const double micros = *number * m_microsPerUnit;
            if (micros < 9e18) {
                origin.micros = std::llround(micros);
            }
        }
    }
    if (m_process) {
        origin.process = columns.values[*m_process].substr(0, kLongestName);
        if (origin.process != m_progress.process) {
            m_progress.process = origin.process;
        }
    }
    if (m_thread) {
        origin.thread = columns.values[*m_thread].substr(0, kLongestName);
    }
    return origin;
}

void PrefixSample::Add(const LogLine& line) {
    if (m_samples.size() < kMostLines) {
        m_samples.push_back({std::string(PrefixLayout::Shortened(line.prefix)),
                             line.match.meaning->thread, line.isError});
    }
}

PrefixLayout PrefixSample::Find() const {
    PrefixLayout layout;
    std::vector<Columns> all;
    std::map<std::size_t, std::size_t> counts;
    std::size_t clocks = 0;
    bool hasFraction = false;
    for (const Sample& sample : m_samples) {
        all.push_back(ColumnsOf(sample.prefix));
        ++counts[all.back().count];
        clocks += all.back().clock ? 1 : 0;
        hasFraction =
            hasFraction || (all.back().clock && all.back().clock->micros % kMicrosPerSecond != 0);
    }
    if (all.empty()) {
        return layout;
    }
    layout.m_hasClock = clocks * 2 > all.size();
    layout.m_hasWholeSeconds = layout.m_hasClock && !hasFraction;
    layout.m_columns = std::max_element(counts.begin(), counts.end(), [](auto& a, auto& b) {
                           return a.second < b.second;
                       })->first;
    std::vector<Column> columns(layout.m_columns);
    for (std::size_t line = 0; line < all.size(); ++line) {
        if (all[line].count == layout.m_columns) {
            for (std::size_t c = 0; c < columns.size(); ++c) {
                Look(columns[c], all[line].values[c], m_samples[line].thread,
                     m_samples[line].isError);
            }
        }
    }

    std::vector<std::size_t> open;  // columns whose meaning is not known yet
    const auto named = [&](std::size_t c, std::initializer_list<std::string_view> names) {
        return c > 0 && columns[c - 1].IsConstant() &&
               std::find(names.begin(), names.end(), Lower(columns[c - 1].kinds.begin()->first)) !=
                   names.end();
    };
    for (std::size_t c = 0; c < columns.size(); ++c) {
        const Column& column = columns[c];
        if (named(c, {"pid", "process", "processid", "process_id", "proc"})) {
            layout.m_process = c;
        } else if (named(c, {"tid", "thread", "threadid", "thread_id", "thr"})) {
            layout.m_thread = c;
        } else if (!layout.m_hasClock && !layout.m_time &&
                   ((named(c, {"t", "time", "ts", "timestamp"}) && column.IsNumber()) ||
                    (column.IsTime() && !column.IsLevel()))) {
            layout.m_time = c;
            layout.m_microsPerUnit = UnitOf(column.kinds.begin()->first, named(c, {"t"}));
        } else if (!column.IsLevel() && column.IsRepeated()) {
            open.push_back(c);
        }
    }
    if (!layout.m_thread) {
        std::size_t best = 1;
        for (const std::size_t c : open) {
            // A value that only moves on is no thread: more likely a time that nobody knows.
            if (columns[c].returns > 0 && columns[c].SeparatedKinds() > best) {
                best = columns[c].SeparatedKinds();
                layout.m_thread = c;
            }
        }
    }
    std::vector<std::size_t> ids;
    for (const std::size_t c : open) {
        if (columns[c].IsId() && layout.m_thread != c) {
            ids.push_back(c);
        }
    }
    // A thread that is not known by its lines: two numbers are a process and its thread.
    const auto mixes = [&](std::size_t c) {
        const auto& kinds = columns[c].kinds;
        return std::any_of(kinds.begin(), kinds.end(),
                           [](const auto& one) { return one.second.size() > 1; });
    };
    if (!layout.m_thread && ids.size() >= (layout.m_process ? 1U : 2U) && !mixes(ids.back())) {
        layout.m_thread = ids.back();
        ids.pop_back();
    }
    // Two processes may have threads of the same name; each process has threads of several kinds.
    const auto mixesEverywhere = [&](std::size_t c) {
        const auto& kinds = columns[c].kinds;
        return std::all_of(kinds.begin(), kinds.end(),
                           [](const auto& one) { return one.second.size() > 1; });
    };
    const auto isSameForAThread = [&](std::size_t c) {
        std::map<std::string_view, std::string_view> processes;
        for (const Columns& line : all) {
            if (line.count == layout.m_columns && layout.m_thread) {
                const auto [known, isNew] =
                    processes.emplace(line.values[*layout.m_thread], line.values[c]);
                if (!isNew && known->second != line.values[c]) {
                    return false;
                }
            }
        }
        return true;
    };
    const auto isProcess = [&](std::size_t c) {
        return c != layout.m_thread && columns[c].CanBeProcess() &&
               (isSameForAThread(c) || mixesEverywhere(c));
    };
    for (auto c = ids.rbegin(); c != ids.rend() && !layout.m_process; ++c) {
        if (isProcess(*c)) {
            layout.m_process = *c;
        }
    }
    for (const std::size_t c : open) {  // a name instead of a number
        if (!layout.m_process && layout.m_thread && !columns[c].IsConstant() && isProcess(c)) {
            layout.m_process = c;
        }
    }
    for (const Columns& line : all) {
        if (layout.m_process && layout.m_firstProcess.empty() && line.count == layout.m_columns) {
            layout.m_firstProcess = line.values[*layout.m_process].substr(0, kLongestName);
        }
    }
    return layout.Again();
}

}  // namespace lab::explain
