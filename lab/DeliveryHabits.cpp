// Calls of the client's back door.
#include "lab/DeliveryHabits.h"

#include <algorithm>

#include "platform/services/standin/ClientBackDoor.h"

namespace lab {

void ApplyDeliveryHabits(const std::map<std::string, std::string>& fields) {
    const auto number = [&](const char* name, unsigned otherwise) {
        const auto found = fields.find(name);
        return found == fields.end() ? otherwise : static_cast<unsigned>(std::stoul(found->second));
    };
    LinkDockService::DeliveryHabits habits;
    habits.insideSubscribeMs = number("inside-subscribe", 0);
    habits.insideWriteMs = number("inside-write", 0);
    habits.threads = std::max(number("threads", 1), 1U);
    habits.afterRefusedUnsubscribe = fields.count("after-refusal") > 0;
    LinkDockService::SetDeliveryHabits(habits);
}

}  // namespace lab
