// Calls a Phone from timers of the hosted layer.
#pragma once

#include <memory>

#include "simulator/Phone.h"

namespace simulator {

/// One visit of a phone. Any thread. The phone and its report run on timers of the layer, under
/// hosted::DeviceLock; the report must not block.
///
/// `owner` keeps the tag alive until the phone has gone.
void StartPhoneVisit(std::shared_ptr<void> owner, TagRadio& tag, Micros enterAfter, Micros stay,
                     Phone::Reporter report);

}  // namespace simulator
