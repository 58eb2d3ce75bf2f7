// What a host's sink writes before each line of the library: where the time, the process and the
// thread are. Found from a sample of the lines, without a setting:
//
// - The time has one of the forms in Clock.cpp. Without one it is a number that does not fall, and
//   that has a fraction or repeats: real times do, and counters of lines do not.
// - The thread is the column that keeps apart lines that only one kind of thread writes: the table
//   of meanings says which these are. Without two kinds it is a number.
// - The process is a number with several kinds of thread, or a constant one beside the thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lab/explain/LogLines.h"

namespace lab::explain {

using Micros = std::optional<std::int64_t>;
constexpr std::int64_t kMicrosPerSecond = 1'000'000;
constexpr std::int64_t kMicrosPerDay = 86'400 * kMicrosPerSecond;

/// A date and time, or a time alone.
struct Clock {
    std::string_view text;    ///< a part of the prefix
    std::int64_t micros = 0;  ///< since some day, or since midnight
    bool hasDate = false;
};

/// The first one. Its forms are the list in Clock.cpp, each with . , or : and a fraction after the
/// seconds, AM or PM, and an offset from UTC, which is ignored.
std::optional<Clock> FindClock(std::string_view prefix);

/// A prefix, taken apart.
struct Origin {
    std::string time;  ///< as it is written; may be empty
    Micros micros;
    std::string process;
    std::string thread;
};

class PrefixLayout {
  public:
    /// Finds the layout of the first lines of a log.
    explicit PrefixLayout(const std::vector<LogLine>& sample);

    /// Takes a prefix apart. The time grows past midnight where it has no date. A prefix that looks
    /// otherwise than the others has no thread, and counts as one of the last process.
    Origin Read(std::string_view prefix);

    bool HasTime() const { return m_hasClock || m_time.has_value(); }
    /// Every length is wrong by up to a second then.
    bool HasWholeSeconds() const { return m_hasWholeSeconds; }
    bool IsNewestFirst() const { return m_isNewestFirst; }
    bool HasProcess() const { return m_process.has_value(); }
    bool HasThread() const { return m_thread.has_value(); }

  private:
    using Place = std::optional<std::size_t>;  // of a column

    std::size_t m_columns = 0;  // other prefixes have neither process nor thread
    bool m_hasClock = false;
    bool m_hasWholeSeconds = false;
    bool m_isNewestFirst = false;
    Place m_time;  // a number instead of a clock
    double m_microsPerUnit = 1000;
    Place m_process;
    Place m_thread;

    std::string m_lastProcess;
    std::int64_t m_dayOffset = 0;
    std::int64_t m_latest = 0;  // of the times without a date
};

}  // namespace lab::explain
