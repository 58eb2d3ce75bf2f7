// A phone that is held to a tag. It comes, selects the tag, reads its NDEF message page by page,
// checks at intervals that the tag still answers, and goes. A model without threads: its caller
// passes the time and gets the time of the next call. PhoneVisit calls it from timers.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "simulator/PhoneNdef.h"
#include "simulator/TagRadio.h"

namespace simulator {

constexpr Micros kPhoneSelectTime = 20 * kMilli;      ///< from entering to its first selection
constexpr Micros kPhoneReadTime = 2 * kMilli;         ///< for one read command
constexpr Micros kPhoneCheckInterval = 125 * kMilli;  ///< between presence checks

/// The result of a visit.
struct PhoneReport {
    Micros time = 0;
    bool read = false;
    std::string problem;  ///< when not read: why
    NdefReading reading;  ///< when read
    Bytes area;           ///< bytes read of the tag's data area, from chip register 16 on
};

class Phone {
  public:
    using Reporter = std::function<void(const PhoneReport& report)>;

    /// Stays in the field for `stay`. The tag must outlive the phone.
    Phone(TagRadio& tag, Micros stay, Reporter report);

    /// Does what is due. Returns the time of the next call, or nothing when the phone has gone. It
    /// reports the first message that it reads, and before that its first failure. A phone that
    /// finds no tag tries again until it goes.
    std::optional<Micros> Step(Micros now);

    /// Ends the visit at the next step, however long it was to last.
    void TakeAway() { m_stay = m_leaveAt = 0; }

  private:
    enum class State { kAway, kSeeking, kSelecting, kReading, kStaying, kGone };

    void Seek(Micros now);
    void Read(Micros now);
    void Fail(Micros now, const std::string& problem);
    void Schedule(Micros now, Micros delay, State state);

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
