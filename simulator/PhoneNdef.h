// What a phone makes of a tag's bytes: finds the NDEF message in the tag's data area and takes its
// records apart. Written from the tag formats alone, so that it can disagree with the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/Basics.h"

namespace simulator {

struct NdefRecord {
    std::uint8_t typeNameFormat = 0;  ///< 1 well-known, 2 media type
    std::string type;
    Bytes id;
    Bytes payload;
};

struct NdefReading {
    Bytes message;  ///< the TLV's value
    std::vector<NdefRecord> records;
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
    std::size_t needed = 0;  ///< kNeedMore: bytes of the area that must be there to go on
    std::string problem;     ///< kNone: why there is no message
};

/// Looks through the TLVs of a data area of which the first bytes are there.
NdefPlace FindNdef(const Bytes& area);

/// Takes a message apart. False, with the reason in `problem`, when it isn't well formed.
bool ParseNdef(const Bytes& message, NdefReading& reading, std::string& problem);

}  // namespace simulator
