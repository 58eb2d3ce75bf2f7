// A host that runs on the scheduled clock, for fuzzers of what devices tell. The clock can be
// started once a process, so one host lives through all inputs; each input begins and ends with
// the host at rest.
#pragma once

#include <tagport/NfcManager.h>

#include <array>
#include <memory>
#include <vector>

#include "platform/hosted/Kernel.h"

namespace fuzz {

using Number = std::array<std::uint8_t, 32>;

/// One call of the listener, as far as it is judged.
struct Event {
    int event;
    int route;
    Number number;
};
bool operator==(const Event& left, const Event& right);

/// Starts the clock, with the layer's limit on steps out of the way. To be called first.
void StartClock();

/// A manager with a message for PC type 5 and the recording listener.
std::shared_ptr<NfcManager> MakeManager();

/// The message written by the host.
std::shared_ptr<NdefMessage> MakeMessage();

/// Lets scheduled time pass.
void Pass(hosted::Micros time);

/// What the listener heard since the last call.
std::vector<Event> TakeEvents();

}  // namespace fuzz
