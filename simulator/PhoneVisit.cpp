// A visit is a chain of timers.
#include "simulator/PhoneVisit.h"

#include <algorithm>
#include <utility>

#include "platform/hosted/Kernel.h"

namespace simulator {

namespace {

struct Visit {
    std::shared_ptr<void> owner;
    Phone phone;
};

void Schedule(const std::shared_ptr<Visit>& visit, Micros delay) {
    hosted::After(delay, [visit] {
        const Micros now = hosted::Now();
        if (const auto next = visit->phone.Step(now)) {
            Schedule(visit, std::max<Micros>(0, *next - now));
        }
    });
}

}  // namespace

void StartPhoneVisit(std::shared_ptr<void> owner, TagRadio& tag, Micros enterAfter, Micros stay,
                     Phone::Reporter report) {
    Schedule(std::make_shared<Visit>(Visit{std::move(owner), Phone(tag, stay, std::move(report))}),
             enterAfter);
}

}  // namespace simulator
