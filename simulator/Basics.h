// Types that every model uses. A model has no threads and knows neither the emulation nor the
// library.
#pragma once

#include <cstdint>
#include <vector>

namespace simulator {

using Bytes = std::vector<std::uint8_t>;

/// A time or a span of time in microseconds. A model has no clock: its caller
/// passes the time.
using Micros = std::int64_t;
constexpr Micros kMilli = 1000;

}  // namespace simulator
