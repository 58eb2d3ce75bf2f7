// The faults of a whole PC in one text: a plan for the drivers, and calls of the Bluetooth client
// that fail.
//
//     write#3=refuse:1117, connect#1
//
// An entry with an action belongs to the drivers' plan (see FaultPlan.h). Where the PC has the
// Bluetooth route, an entry CALL#N without an action names a call of the client, counted from the
// moment that the faults are set: connect, disconnect, subscribe, unsubscribe or write. A PC with
// the Bluetooth route alone has no other entries.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/services/standin/ClientBackDoor.h"
#include "simulator/FaultPlan.h"
#include "simulator/PcKinds.h"

namespace simulator {

struct ClientFault {
    LinkDockService::BleCall call = LinkDockService::BleCall::kConnect;
    unsigned nth = 1;
};

struct PcFaults {
    FaultPlan drivers;
    std::vector<ClientFault> client;

    /// Nothing when the text is wrong, with the entry and the reason in `error`. An empty text
    /// means no faults.
    static std::optional<PcFaults> Parse(const std::string& text,
                                         const std::vector<PcRoute>& routes, std::string& error);
};

}  // namespace simulator
