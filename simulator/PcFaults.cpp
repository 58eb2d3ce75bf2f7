// Splits the text among the drivers and the Bluetooth client.
#include "simulator/PcFaults.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace simulator {

namespace {

using LinkDockService::BleCall;

constexpr std::pair<const char*, BleCall> kCalls[] = {{"connect", BleCall::kConnect},
                                                      {"disconnect", BleCall::kDisconnect},
                                                      {"subscribe", BleCall::kSubscribe},
                                                      {"unsubscribe", BleCall::kUnsubscribe},
                                                      {"write", BleCall::kWrite}};

std::optional<ClientFault> ParseClientFault(std::string entry, std::string& error) {
    entry.erase(0, entry.find_first_not_of(' '));
    entry.erase(entry.find_last_not_of(' ') + 1);
    const std::size_t sign = entry.find('#');
    unsigned nth = 0;
    if (sign != std::string::npos) {
        std::from_chars(entry.data() + sign + 1, entry.data() + entry.size(), nth);
    }
    for (const auto& [name, call] : kCalls) {
        // The comparison of the whole also refuses signs, zeros in front and what follows.
        if (nth != 0 && entry == name + ("#" + std::to_string(nth))) {
            return ClientFault{call, nth};
        }
    }
    error = "fault \"" + entry +
            "\": on the ble route CALL#N would be right, with connect, disconnect, subscribe, "
            "unsubscribe or write";
    return std::nullopt;
}

}  // namespace

std::optional<PcFaults> PcFaults::Parse(const std::string& text, const std::vector<PcRoute>& routes,
                                        std::string& error) {
    const bool ble = std::find(routes.begin(), routes.end(), PcRoute::kBle) != routes.end();
    PcFaults faults;
    std::string ofDrivers;
    // An empty entry, as after a comma at the end, is not dropped: it is refused below.
    for (std::size_t at = 0; !text.empty() && at <= text.size();) {
        const std::size_t comma = std::min(text.find(',', at), text.size());
        const std::string entry = text.substr(at, comma - at);
        at = comma + 1;
        if (!ble || (routes.size() > 1 && entry.find('=') != std::string::npos)) {
            ofDrivers += (ofDrivers.empty() ? "" : ",") + entry;
        } else if (const auto fault = ParseClientFault(entry, error)) {
            faults.client.push_back(*fault);
        } else {
            return std::nullopt;
        }
    }
    const auto plan = FaultPlan::Parse(ofDrivers, error);
    if (!plan) {
        error = "\"" + ofDrivers + "\": " + error;
        return std::nullopt;
    }
    faults.drivers = *plan;
    return faults;
}

}  // namespace simulator
