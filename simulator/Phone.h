// A phone that is held to a tag: it comes, selects the tag, reads its NDEF message page by page,
// checks every so often that the tag is still there, and goes. Plain: it is told the time and says
// when it wants to be called again. PhoneVisit drives it by the layer's timers.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "simulator/PhoneNdef.h"
#include "simulator/TagRadio.h"

namespace simulator {

constexpr Micros kPhoneSelectTime = 20 * kMilli;      ///< from its coming to its first selection
constexpr Micros kPhoneReadTime = 2 * kMilli;         ///< for one read command
constexpr Micros kPhoneCheckInterval = 125 * kMilli;  ///< between presence checks

/// What a phone tells its owner.
struct PhoneReport {
    Micros time = 0;
    bool read = false;
    std::string problem;  ///< when not read: why
    NdefReading reading;  ///< when read
    Bytes area;           ///< what it got of the tag's data area, from chip register 16 on
};

class Phone {
  public:
    using Reporter = std::function<void(const PhoneReport& report)>;

    /// Stays in the field for `stay`. The tag must outlive the phone.
    Phone(TagRadio& tag, Micros stay, Reporter report);

    /// Does what is due. The time of the next call, or nothing when the phone has gone. A message
    /// is reported once, when it has been read; a failure once, too, but a phone that found no tag
    /// goes on looking for one.
    std::optional<Micros> Step(Micros now);

    bool InField() const { return m_state != State::kAway && m_state != State::kGone; }

  private:
    enum class State { kAway, kSeeking, kSelecting, kReading, kStaying, kGone };

    void Seek(Micros now);
    void Read(Micros now);
    void Fail(Micros now, const std::string& problem);
    void Next(Micros now, Micros delay, State state);

    TagRadio& m_tag;
    Micros m_stay;
    Reporter m_report;
    State m_state = State::kAway;
    Micros m_leaveAt = 0;
    Micros m_due = 0;
    Bytes m_area;
    bool m_read = false;    // a message has been reported
    bool m_failed = false;  // a failure has been reported
};

}  // namespace simulator
