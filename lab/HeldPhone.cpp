// Drives a simulated phone, one step after the other, on the hosted clock.
#include "lab/HeldPhone.h"

#include <algorithm>
#include <utility>

#include "platform/hosted/Kernel.h"

namespace lab {

namespace {

constexpr simulator::Micros kStayForever = 365LL * 24 * 3600 * hosted::kSecond;

}  // namespace

HeldPhone::HeldPhone(simulator::TagRadio& tag, simulator::Phone::Reporter report)
    : m_tag(tag), m_phone(tag, kStayForever, std::move(report)) {}

void HeldPhone::Step() {
    if (m_away) {
        return;
    }
    const simulator::Micros now = hosted::Now();
    if (const auto next = m_phone.Step(now)) {
        hosted::After(std::max<simulator::Micros>(*next - now, 0),
                      [self = shared_from_this()] { self->Step(); });
    }
}

void HeldPhone::TakeAway() {
    m_away = true;
    m_tag.Leave(hosted::Now());
}

}  // namespace lab
