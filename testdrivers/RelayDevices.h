// What the simulated devices of a Windows PC offer beside platform/emulation/Kernel.h.
#pragma once

#include "platform/emulation/Kernel.h"
#include "testdrivers/RelayProtocol.h"

namespace emulation {

/// By how much the timer that was latest so far came too late.
Micros LongestLateness();

/// Which requests the relay driver ends at once, until its device is plugged out or in. Throws
/// std::runtime_error when the driver refuses.
void SetRules(const RelayRules& rules);

}  // namespace emulation
