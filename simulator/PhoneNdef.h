// A phone's view of a tag: finds the NDEF message in the data area and parses its records. Shares
// no code with the library, so that it finds the library's errors in the format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "simulator/Basics.h"

namespace simulator {

struct NdefReading {
    std::optional<std::string> uri;  ///< of the first URI record, its abbreviation written out
    std::string mimeType;            ///< of the first media-type record
    Bytes mimePayload;
};

/// Where the NDEF message lies in the data area.
struct NdefPlace {
    enum class State { kFound, kNeedMore, kNone };
    State state = State::kNone;
    std::size_t offset = 0;  ///< of the message's first byte
    std::size_t length = 0;
    std::string problem;  ///< kNone: why there is no message
};

/// Finds the message among the TLVs. `area` holds the bytes read so far, from the first one on.
NdefPlace FindNdef(const Bytes& area);

/// Parses a message. False, with the reason in `problem`, when it is malformed.
bool ParseNdef(const Bytes& message, NdefReading& reading, std::string& problem);

}  // namespace simulator
