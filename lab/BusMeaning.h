// What the bytes on the way to a tag mean: the two chip formats, the keyboard's reports and its
// frames. Plain: bytes in, a text out; it follows one route and remembers what was asked last.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace lab {

enum class BusFormat { kChip, kReports, kFrames };

class BusMeaning {
  public:
    /// `extended`: a chip that speaks the format with four-byte heads.
    BusMeaning(BusFormat format, bool extended) : m_format(format), m_extended(extended) {}

    BusFormat format() const { return m_format; }
    std::string OfWrite(std::string_view bytes);
    std::string OfRead(std::string_view bytes) const;

  private:
    std::string ChipWrite(std::string_view bytes);
    std::string ChipRead(std::string_view bytes) const;
    std::string Frame(std::string_view frame) const;
    std::string FromKeyboard(std::string_view message) const;

    BusFormat m_format;
    bool m_extended;
    bool m_state = false;     // the last head asked for a state, not a register
    unsigned m_register = 0;  // the last one addressed
};

}  // namespace lab
