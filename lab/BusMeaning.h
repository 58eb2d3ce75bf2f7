// Describes the bytes that travel to and from a tag: the two chip formats, the keyboard's reports
// and its frames. No threads and no devices: bytes in, text out. One object follows one route and
// remembers the last request.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "simulator/PcKinds.h"

namespace lab {

using simulator::BusFormat;

class BusMeaning {
  public:
    /// `isFanli`: the chip uses the frames with four-byte heads.
    BusMeaning(BusFormat format, bool isFanli) : m_format(format), m_isFanli(isFanli) {}

    BusFormat format() const { return m_format; }
    std::string OfWrite(std::string_view bytes);
    std::string OfRead(std::string_view bytes) const;

  private:
    std::string ChipWrite(std::string_view bytes);
    std::string ChipRead(std::string_view bytes) const;
    std::string Frame(std::string_view frame) const;
    std::string FromKeyboard(std::string_view message) const;

    BusFormat m_format;
    bool m_isFanli;
    bool m_state = false;     // the last request was for a state, not a register
    unsigned m_register = 0;  // the last register that was addressed
};

}  // namespace lab
