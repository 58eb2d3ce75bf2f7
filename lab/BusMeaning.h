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
using simulator::ChipFrames;

class BusMeaning {
  public:
    /// `frames` are the chip's, on a route that has one.
    explicit BusMeaning(BusFormat format, ChipFrames frames = ChipFrames::kNone)
        : m_format(format), m_frames(frames) {}

    BusFormat format() const { return m_format; }
    std::string OfWrite(std::string_view bytes);
    std::string OfRead(std::string_view bytes) const;

  private:
    std::string ChipWrite(std::string_view bytes);
    std::string ChipRead(std::string_view bytes) const;
    std::string Frame(std::string_view frame) const;
    std::string FromKeyboard(std::string_view message) const;

    BusFormat m_format;
    ChipFrames m_frames;
    bool m_state = false;     // the last request was for a state, not a register
    unsigned m_register = 0;  // the last register that was addressed
};

}  // namespace lab
