// Splits the text among the drivers and the Bluetooth client.
#include "simulator/PcFaults.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include "simulator/BluetoothKeyboard.h"

namespace simulator {

namespace {

static_assert(static_cast<int>(LinkDockService::BleCall::kWrite) == kLinkWrite);

constexpr char kCallForm[] =
    "CALL#N, with connect, disconnect, subscribe, unsubscribe or write and a number from 1 to ";

std::optional<ClientFault> ParseClientFault(const std::string& entry) {
    const auto nth = FaultNumber(entry.substr(entry.find('#') + 1));  // the whole without a '#'
    for (std::size_t call = 0; call < std::size(kLinkCallNames) && nth; ++call) {
        // The comparison of the whole also refuses zeros in front.
        if (entry == kLinkCallNames[call] + ("#" + std::to_string(*nth))) {
            return ClientFault{static_cast<LinkDockService::BleCall>(call), *nth};
        }
    }
    return std::nullopt;
}

std::string NamesOf(const std::vector<PcRoute>& routes) {
    std::string names;
    for (const PcRoute route : routes) {
        names += (names.empty() ? "" : ", ") + std::string(KindOf(route).name);
    }
    return names;
}

}  // namespace

std::optional<PcFaults> PcFaults::Parse(const std::string& text, const std::vector<PcRoute>& routes,
                                        std::string& error) {
    const bool ble = std::find(routes.begin(), routes.end(), PcRoute::kBle) != routes.end();
    const bool both = ble && routes.size() > 1;
    const auto refused = [&](const std::string& problem) {
        error = problem;
        return std::nullopt;
    };
    PcFaults faults;
    std::string ofDrivers;
    unsigned number = 0;
    for (const std::string& entry : FaultEntries(text)) {
        ++number;
        const std::optional<ClientFault> fault = ParseClientFault(entry);
        if (entry.empty()) {
            return refused("entry " + std::to_string(number) + " is empty");
        }
        // "write" is a target of the drivers too, whose parser says what is missing.
        if (fault && !ble && fault->call != LinkDockService::BleCall::kWrite) {
            return refused("\"" + entry + "\": a call of the Bluetooth client, and the PC has no " +
                           "ble route, only " + NamesOf(routes));
        }
        if (fault && ble) {
            faults.client.push_back(*fault);
        } else if (!ble || (both && entry.find('=') != std::string::npos)) {
            ofDrivers += (ofDrivers.empty() ? "" : ",") + entry;
        } else {
            return refused("\"" + entry + "\": the form " +
                           (both ? "without an action" : "on ble") + " is " + kCallForm +
                           std::to_string(std::numeric_limits<unsigned>::max()));
        }
    }
    const auto plan = FaultPlan::Parse(ofDrivers, error);
    faults.drivers = plan.value_or(FaultPlan());
    return plan ? std::make_optional(faults) : std::nullopt;
}

}  // namespace simulator
