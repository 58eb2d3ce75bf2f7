// Drives a plain phone by the timers of the hosted layer.
#pragma once

#include <memory>

#include "simulator/Phone.h"

namespace simulator {

/// One visit of a phone. May be called from any thread; everything happens on the layer's timers,
/// under hosted::DeviceLock, the report too: it must not block.
///
/// `owner` keeps the tag alive until the phone has gone.
void StartPhoneVisit(std::shared_ptr<void> owner, TagRadio& tag, Micros enterAfter, Micros stay,
                     Phone::Reporter report);

}  // namespace simulator
