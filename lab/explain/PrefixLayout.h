// What a host's sink writes before each line of the library: where the time, the process and the
// thread are. Found from a sample of the lines, without a setting:
//
// - A clock time is recognised by its form (ClockText.h). Without one, a number that does not fall
//   from line to line is the time, unless it counts lines.
// - The rest is cut into columns at blanks, brackets and punctuation. A word such as "pid" or "tid"
//   names the next column. The number of a line of source code is no column.
// - The level is the column whose value always says whether the line is a warning or an error.
// - The thread is the column whose values separate lines that only one kind of thread writes: the
//   table of meanings says which these are. Where the sample has no two kinds, the last of two
//   numbers is the thread.
// - The process is a column that is the same for all lines of a thread, or whose every value has
//   threads of several kinds.
#pragma once

#include <array>
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

class PrefixLayout {
  public:
    /// No time, no process, no thread.
    PrefixLayout() = default;

    /// Takes a prefix apart. The time grows past midnight where it has no date. A prefix that looks
    /// otherwise than the others has no thread, and counts as one of the last process.
    Origin Read(std::string_view prefix);

    /// The same layout for another reading of the same lines.
    PrefixLayout Again() const;

    /// The part of a prefix that is looked at: its end.
    static std::string_view Shortened(std::string_view prefix);

    bool HasTime() const { return m_hasClock || m_time.has_value(); }
    /// Every length is wrong by up to a second then.
    bool HasWholeSeconds() const { return m_hasWholeSeconds; }
    bool HasProcess() const { return m_process.has_value(); }
    bool HasThread() const { return m_thread.has_value(); }

  private:
    friend class PrefixSample;

    std::size_t m_columns = 0;  ///< other prefixes have neither process nor thread
    bool m_hasClock = false;
    bool m_hasWholeSeconds = false;
    std::optional<std::size_t> m_time;  ///< a number instead of a clock
    double m_microsPerUnit = 1000;
    std::optional<std::size_t> m_process;
    std::optional<std::size_t> m_thread;

    struct Progress {
        std::string process;  // of the last line
        std::int64_t dayOffset = 0;
        std::int64_t lastOfDay = 0;
    };
    Progress m_progress;
    std::string m_firstProcess;
};

/// The lines that a layout is found from.
class PrefixSample {
  public:
    static constexpr std::size_t kMostLines = 2000;

    /// Lines after the first kMostLines are ignored.
    void Add(const LogLine& line);
    PrefixLayout Find() const;

  private:
    struct Sample {
        std::string prefix;
        ThreadKind thread;
        bool isError;
    };
    std::vector<Sample> m_samples;
};

}  // namespace lab::explain
