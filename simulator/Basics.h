// The words that every model uses. Plain: no thread, no layer, no library.
#pragma once

#include <cstdint>
#include <vector>

namespace simulator {

using Bytes = std::vector<std::uint8_t>;

/// A time or a span of time in microseconds. Models are told the time; they have no clock.
using Micros = std::int64_t;
constexpr Micros kMilli = 1000;

}  // namespace simulator
