// A visit is a chain of timers.
#include "simulator/PhoneVisit.h"

#include <algorithm>
#include <utility>

#include "platform/emulation/Kernel.h"

namespace simulator {

std::shared_ptr<PhoneVisit> PhoneVisit::Start(std::shared_ptr<void> owner, TagRadio& tag,
                                              Micros enterAfter, Micros stay,
                                              Phone::Reporter report) {
    const auto visit =
        std::make_shared<PhoneVisit>(std::move(owner), Phone(tag, stay, std::move(report)));
    visit->StepAfter(enterAfter);
    return visit;
}

void PhoneVisit::StepAfter(Micros delay) {
    emulation::After(delay, [self = shared_from_this()] { self->Step(); });
}

void PhoneVisit::Step() {
    const Micros now = emulation::Now();
    if (const auto next = m_phone.Step(now)) {
        StepAfter(std::max<Micros>(0, *next - now));
    } else {
        m_gone = true;
    }
}

void PhoneVisit::TakeAway() {
    const emulation::DeviceLock lock;
    m_phone.TakeAway();
    Step();
}

}  // namespace simulator
