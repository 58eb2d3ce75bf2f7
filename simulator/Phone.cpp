// The phone's visit as a sequence of steps.
#include "simulator/Phone.h"

#include <algorithm>
#include <utility>

namespace simulator {

Phone::Phone(TagRadio& tag, Micros stay, Reporter report)
    : m_tag(tag), m_stay(stay), m_report(std::move(report)) {}

std::optional<Micros> Phone::Step(Micros now) {
    if (m_state == State::kGone) {
        return std::nullopt;
    }
    if (m_state == State::kAway) {
        m_leaveAt = now + m_stay;
        m_due = now;
        Schedule(now, 0, State::kSeeking);
    }
    if (now >= m_leaveAt) {
        m_tag.Leave(now);
        Fail(now, "the phone left before it had read the message");
        m_state = State::kGone;
        return std::nullopt;
    }
    if (now < m_due) {
        return m_due;
    }
    switch (m_state) {
        case State::kSeeking:
            Seek(now);
            break;
        case State::kSelecting:
        case State::kStaying:
            if (!m_tag.Select(now)) {
                Fail(now, "the tag stopped answering");
                Schedule(now, kPhoneCheckInterval, State::kSeeking);
            } else if (m_state == State::kSelecting) {
                m_area.clear();
                Schedule(now, kPhoneReadTime, State::kReading);
            } else {
                Schedule(now, kPhoneCheckInterval, State::kStaying);
            }
            break;
        case State::kReading:
            Read(now);
            break;
        case State::kAway:
        case State::kGone:
            break;
    }
    return m_due;
}

void Phone::Schedule(Micros now, Micros delay, State state) {
    m_state = state;
    // From when this step was due: on a real clock every step is a little late, and these times
    // would add up over a message.
    const Micros from = now - m_due < kPhoneCheckInterval ? m_due : now;
    m_due = std::min(from + delay, m_leaveAt);
}

void Phone::Seek(Micros now) {
    if (m_tag.Enter(now)) {
        Schedule(now, kPhoneSelectTime, State::kSelecting);
    } else {
        Fail(now, "no tag answers: its radio is off");
        Schedule(now, kPhoneCheckInterval, State::kSeeking);
    }
}

void Phone::Read(Micros now) {
    const auto page = kFirstDataPage + static_cast<unsigned>(m_area.size() / kPageSize);
    const auto quad = m_tag.ReadPages(now, page);
    if (!quad) {
        Fail(now, "the tag gave no answer for page " + std::to_string(page));
        Schedule(now, kPhoneCheckInterval, State::kSeeking);
        return;
    }
    m_area.insert(m_area.end(), quad->begin(), quad->end());
    const NdefPlace place = FindNdef(m_area);
    if (place.state == NdefPlace::State::kNeedMore) {
        Schedule(now, kPhoneReadTime, State::kReading);
        return;
    }
    Schedule(now, kPhoneCheckInterval, State::kStaying);
    if (place.state == NdefPlace::State::kNone) {
        Fail(now, place.problem);
        return;
    }
    const auto begin = m_area.begin() + static_cast<std::ptrdiff_t>(place.offset);
    NdefReading reading;
    std::string problem;
    if (!ParseNdef(Bytes(begin, begin + static_cast<std::ptrdiff_t>(place.length)), reading,
                   problem)) {
        Fail(now, problem);
        return;
    }
    m_read = true;
    if (m_report) {
        m_report({now, true, "", reading, m_area});
    }
}

// Reports the first failure only: later ones are its consequences.
void Phone::Fail(Micros now, const std::string& problem) {
    if (!m_read && !std::exchange(m_failed, true) && m_report) {
        m_report({now, false, problem, {}, m_area});
    }
}

}  // namespace simulator
