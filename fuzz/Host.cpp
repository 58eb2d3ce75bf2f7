#include "fuzz/Host.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "fuzz/Check.h"

namespace fuzz {

namespace {

// What the listener heard. Threads of the scheduled clock take turns, so it needs no lock.
std::vector<Event> g_events;

void Listen(int event, const std::uint8_t (&number)[32], int route) {
    Event heard{event, route, {}};
    std::copy(std::begin(number), std::end(number), heard.number.begin());
    g_events.push_back(heard);
}

}  // namespace

bool operator==(const Event& left, const Event& right) {
    return left.event == right.event && left.route == right.route && left.number == right.number;
}

void StartClock() {
    hosted::ScheduledOptions options;
    options.maxSteps = std::numeric_limits<std::uint64_t>::max();
    hosted::UseScheduledClock(options);
}

std::shared_ptr<NdefMessage> MakeMessage() {
    static const std::uint8_t mac[6] = {2, 17, 34, 51, 68, 85};
    static const std::uint8_t model[4] = {0, 0, 5, 0};
    static const std::uint8_t number[32] = {1};
    auto message = std::make_shared<NdefMessage>();
    message->SetUrl(std::string(50, 'u'));
    message->SetMac(mac);
    message->SetRandomNumber(number);
    message->SetModel(model);
    message->SetPcType(5);
    return message;
}

std::shared_ptr<NfcManager> MakeManager() {
    auto manager = NfcManager::Create(MakeMessage(), &Listen);
    Check(manager != nullptr, "a manager is made");
    return manager;
}

void Pass(hosted::Micros time) {
    hosted::WaitFor([] { return false; }, time, "time");
}

std::vector<Event> TakeEvents() {
    return std::exchange(g_events, {});
}

}  // namespace fuzz
