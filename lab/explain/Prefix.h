// What a host's sink writes before each line of the library: where the time, the process and the
// thread are. Found from a sample of the lines, without a setting:
//
// - A clock time is recognised by its form (Clock.h). Without one, a number that does not fall is
//   the time, when it has a fraction or repeats: real times do, and counters do not.
// - The rest is cut into columns. A word such as "pid" or "tid" names the next one.
// - The level is the column that always says whether the line is a warning or an error.
// - The thread is the column that keeps apart lines that only one kind of thread writes: the table
//   of meanings says which these are. Without two kinds, the last of two numbers is the thread.
// - The process is a column that is the same for all lines of a thread, or whose every value has
//   threads of several kinds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lab/explain/LogLines.h"

namespace lab::explain {

/// A prefix, taken apart. The views are parts of the prefix.
struct Origin {
    std::string_view time;  ///< as it is written
    std::optional<std::int64_t> micros;
    std::string_view process;
    std::string_view thread;
};

/// Without a sample: no time, no process, no thread.
class PrefixLayout {
  public:
    /// Takes a prefix apart. The time grows past midnight where it has no date. A prefix that looks
    /// otherwise than the others has no thread, and counts as one of the last process.
    Origin Read(std::string_view prefix);

    /// The same layout for another reading of the same lines.
    PrefixLayout Again() const;

    bool HasTime() const { return m_hasClock || m_time.has_value(); }
    /// Every length is wrong by up to a second then.
    bool HasWholeSeconds() const { return m_hasWholeSeconds; }
    bool IsNewestFirst() const { return m_isNewestFirst; }
    bool HasProcess() const { return m_process.has_value(); }
    bool HasThread() const { return m_thread.has_value(); }

  private:
    friend class PrefixSample;

    std::size_t m_columns = 0;  ///< other prefixes have neither process nor thread
    bool m_hasClock = false;
    bool m_hasWholeSeconds = false;
    bool m_isNewestFirst = false;
    std::optional<std::size_t> m_time;  ///< a number instead of a clock
    double m_microsPerUnit = 1000;
    std::optional<std::size_t> m_process;
    std::optional<std::size_t> m_thread;

    std::string m_firstProcess;
    std::string m_lastProcess;
    std::int64_t m_dayOffset = 0;
    std::int64_t m_lastOfDay = 0;
};

/// The lines that a layout is found from.
class PrefixSample {
  public:
    static constexpr std::size_t kMostLines = 2000;

    /// A line that waits for the layout.
    struct Line {
        unsigned file;
        std::uint64_t number;
        std::string prefix;
        std::string text;
        ThreadKind thread;
        bool isError;
    };

    void Add(const LogLine& line, unsigned file);
    const std::vector<Line>& Lines() const { return m_lines; }
    PrefixLayout Find() const;

  private:
    void FindTimes(PrefixLayout& layout) const;

    std::vector<Line> m_lines;
};

}  // namespace lab::explain
