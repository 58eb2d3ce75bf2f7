// How well the real clock of the simulated devices keeps its times.
#pragma once

#include "platform/emulation/Kernel.h"

namespace emulation {

/// By how much the timer that was latest so far came too late.
Micros LongestLateness();

}  // namespace emulation
