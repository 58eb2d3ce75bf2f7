// Finds a date and a time in the prefix of a log line. Plain functions.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace lab::explain {

using Micros = std::optional<std::int64_t>;

/// A date and time, or a time alone.
struct Clock {
    std::string_view text;    ///< a part of the prefix
    std::int64_t micros = 0;  ///< since some day, or since midnight
    bool hasDate = false;
};

constexpr std::int64_t kMicrosPerSecond = 1'000'000;
constexpr std::int64_t kMicrosPerDay = 86'400 * kMicrosPerSecond;

/// The first one. Its forms are the list in Clock.cpp, each with . , or : and a fraction after the
/// seconds, AM or PM, and an offset from UTC, which is ignored.
std::optional<Clock> FindClock(std::string_view prefix);

}  // namespace lab::explain
