// Drives a simulated phone, one step after the other, on the hosted clock.
#include "simulator/HeldPhone.h"

#include <algorithm>
#include <utility>

#include "platform/hosted/Kernel.h"

namespace simulator {

namespace {

constexpr Micros kStayForever = 365LL * 24 * 3600 * hosted::kSecond;

}  // namespace

HeldPhone::HeldPhone(TagRadio& tag, Phone::Reporter report)
    : m_tag(tag), m_phone(tag, kStayForever, std::move(report)) {}

void HeldPhone::Step() {
    if (m_away) {
        return;
    }
    const Micros now = hosted::Now();
    if (const auto next = m_phone.Step(now)) {
        hosted::After(std::max<Micros>(*next - now, 0),
                      [self = shared_from_this()] { self->Step(); });
    }
}

void HeldPhone::TakeAway() {
    m_away = true;
    m_tag.Leave(hosted::Now());
}

}  // namespace simulator
