// What the device process reports by itself, as lines of text: what a phone has read, and the
// requests that come and go. Both ends of its standard output use these functions.
#pragma once

#include <optional>
#include <string>

#include "platform/emulation/Kernel.h"
#include "simulator/Phone.h"

namespace simulator {

// A line has no line end. Reading a line of another kind, or a broken one, gives nothing.

std::string HexOf(const Bytes& bytes);  ///< "-" for none
Bytes BytesOf(const std::string& hex);

std::string LineOf(const PhoneReport& report);
std::optional<PhoneReport> PhoneFrom(const std::string& line);

/// kOpen, kStart, kDone and kCancel only.
std::string LineOf(const emulation::TraceEvent& event);
/// Its request is never pending and cannot be ended.
std::optional<emulation::TraceEvent> TraceFrom(const std::string& line);

}  // namespace simulator
