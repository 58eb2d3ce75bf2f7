// Splits the text among the drivers and the Bluetooth client.
#include "simulator/PcFaults.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace simulator {

namespace {

using LinkDockService::BleCall;

constexpr std::pair<const char*, BleCall> kCalls[] = {{"connect", BleCall::kConnect},
                                                      {"disconnect", BleCall::kDisconnect},
                                                      {"subscribe", BleCall::kSubscribe},
                                                      {"unsubscribe", BleCall::kUnsubscribe},
                                                      {"write", BleCall::kWrite}};

constexpr char kCallForm[] =
    "CALL#N, with connect, disconnect, subscribe, unsubscribe or write and a number from 1 to ";

std::optional<ClientFault> ParseClientFault(const std::string& entry) {
    const auto nth = FaultNumber(entry.substr(entry.find('#') + 1));  // the whole without a '#'
    for (const auto& [name, call] : kCalls) {
        // The comparison of the whole also refuses zeros in front.
        if (nth && entry == name + ("#" + std::to_string(*nth))) {
            return ClientFault{call, *nth};
        }
    }
    return std::nullopt;
}

}  // namespace

std::optional<PcFaults> PcFaults::Parse(const std::string& text, const std::vector<PcRoute>& routes,
                                        std::string& error) {
    const bool ble = std::find(routes.begin(), routes.end(), PcRoute::kBle) != routes.end();
    if (!ble) {
        const auto plan = FaultPlan::Parse(text, error);
        return plan ? std::make_optional(PcFaults{*plan, {}}) : std::nullopt;
    }
    const bool drivers = routes.size() > 1;
    PcFaults faults;
    std::string ofDrivers;
    // An empty entry, as after a comma at the end, is not dropped: it is refused.
    unsigned number = 0;
    for (std::size_t at = 0; !Trimmed(text).empty() && at <= text.size();) {
        const std::size_t comma = std::min(text.find(',', at), text.size());
        const std::string entry = Trimmed(text.substr(at, comma - at));
        at = comma + 1;
        ++number;
        if (drivers && entry.find('=') != std::string::npos) {
            ofDrivers += (ofDrivers.empty() ? "" : ",") + entry;
        } else if (const auto fault = ParseClientFault(entry)) {
            faults.client.push_back(*fault);
        } else if (entry.empty()) {
            error = "entry " + std::to_string(number) + " is empty";
            return std::nullopt;
        } else {
            error = "\"" + entry + "\": the form " + (drivers ? "without an action" : "on ble") +
                    " is " + kCallForm + std::to_string(std::numeric_limits<unsigned>::max());
            return std::nullopt;
        }
    }
    const auto plan = FaultPlan::Parse(ofDrivers, error);
    if (!plan) {
        return std::nullopt;
    }
    faults.drivers = *plan;
    return faults;
}

}  // namespace simulator
