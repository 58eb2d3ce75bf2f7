// Splits the text among the drivers and the Bluetooth client.
#include "simulator/PcFaults.h"

#include <algorithm>
#include <charconv>
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
    return std::nullopt;
}

std::string Trim(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(' ');
    return begin == std::string::npos ? ""
                                      : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
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
    for (std::size_t at = 0; !Trim(text).empty() && at <= text.size();) {
        const std::size_t comma = std::min(text.find(',', at), text.size());
        const std::string entry = Trim(text.substr(at, comma - at));
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
