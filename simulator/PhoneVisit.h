// Calls a Phone from timers of the emulation.
#pragma once

#include <atomic>
#include <memory>

#include "simulator/Phone.h"

namespace simulator {

/// Longer than any run.
constexpr Micros kUntilTakenAway = 365LL * 24 * 3600 * 1000 * kMilli;

/// One visit of a phone. The phone and its report run on timers of the layer, under
/// emulation::DeviceLock; the report must not block. The visit goes on without its owner's pointer.
class PhoneVisit : public std::enable_shared_from_this<PhoneVisit> {
  public:
    PhoneVisit(std::shared_ptr<void> owner, Phone phone)
        : m_owner(std::move(owner)), m_phone(std::move(phone)) {}

    /// Any thread. `owner` keeps the tag alive until the phone has gone.
    static std::shared_ptr<PhoneVisit> Start(std::shared_ptr<void> owner, TagRadio& tag,
                                             Micros enterAfter, Micros stay,
                                             Phone::Reporter report);

    /// Takes the phone away at once. Any thread, with emulation::DeviceLock or without.
    void TakeAway();
    /// True once the phone has left. Any thread.
    bool Gone() const { return m_gone; }

  private:
    void StepAfter(Micros delay);
    void Step();

    std::shared_ptr<void> m_owner;
    Phone m_phone;  // under emulation::DeviceLock
    std::atomic<bool> m_gone{false};
};

}  // namespace simulator
