// Head of one short NDEF record without ID: first byte, type length, payload length, type. It
// turns itself into bytes and back; NfcData decides which values it has.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "tagimage/ShortBytes.h"

class NfcHead {
  public:
    NfcHead();

    /// 3 bytes and the type. `m_typeLen` goes out as stored, whatever the size of `m_type`.
    std::string GetContent() const;

    /// Takes over exactly one head. False with a log line and nothing changed when `bytes` has no
    /// type or another length than its own type length says.
    bool Parse(std::string_view bytes);

    // NfcData fills and measures a head through these.
    std::uint8_t m_recordType = 0;  ///< NDEF flags and type name format
    std::uint8_t m_typeLen = 0;
    std::uint8_t m_bodyCount = 0;  ///< NDEF payload length
    ShortBytes m_type;
};

// Defaulted out of class so that `NfcHead()` does not zero 255 bytes.
inline NfcHead::NfcHead() = default;
