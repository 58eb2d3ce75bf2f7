#include "lab/PcParts.h"

#include <algorithm>

#include "lab/Failure.h"
#include "lab/Words.h"
#include "simulator/KeyboardMcu.h"
#include "simulator/Pc.h"

namespace lab {

namespace {

using simulator::ChipFrames;
using simulator::ChipKind;
using simulator::kChipKinds;
using simulator::kRouteKinds;
using simulator::PcRoute;
using simulator::RouteKind;

constexpr char kNoFaults[] = "none";

bool IsKeyboard(PcRoute route) {
    return simulator::KindOf(route).IsKeyboard();
}

std::string ChipsWith(ChipFrames frames) {
    return Joined(NamesOf(kChipKinds, [=](const ChipKind& kind) { return kind.frames == frames; }),
                  " and ");
}

}  // namespace

PcParts::PcParts(const PcOptions& options, const std::vector<std::string>& supported)
    : m_isSimulated(true) {
    const std::string given = options.route.value_or(std::string(kRouteKinds.front().name));
    for (const std::string& name : Split(given, ',')) {
        const RouteKind* const kind = FindKind(kRouteKinds, name);
        const std::string place = options.routePlace + given + ": ";
        RefuseIf(std::find(supported.begin(), supported.end(), name) == supported.end(),
                 place + "expected one of " + Joined(supported) + Suggestion(supported, name));
        RefuseIf(HasRoute(name), place + "a route is given twice");
        m_routes.push_back(kind->route);
    }
    std::sort(m_routes.begin(), m_routes.end());
    const std::string chip = options.chip.value_or(std::string(kChipKinds.front().name));
    if (!FirstRoute().IsKeyboard()) {
        const std::string problem = simulator::ChipProblem(m_routes, chip);
        RefuseIf(!problem.empty(), options.chipPlace + chip + ": " + problem);
        m_chip = FindKind(kChipKinds, chip);
    } else {
        RefuseIf(options.chip.has_value(), options.chipPlace + chip + ": the " + RouteName() +
                                               " route has no chip to choose");
    }
    if (options.fault) {
        RefuseIf(options.fault->find_first_not_of(" \t\r\n") == std::string::npos,
                 "--fault \"" + *options.fault + "\": a plan is needed, or none");
        AtPlace("--fault: ", [&] { return Faults(*options.fault); });
    }
}

bool PcParts::HasRoute(std::string_view name) const {
    return Any(m_routes, [&](PcRoute route) { return simulator::KindOf(route).name == name; });
}

std::vector<std::string> PcParts::RouteNames() const {
    return NamesOf(kRouteKinds, [&](const RouteKind& kind) { return HasRoute(kind.name); });
}

std::string PcParts::RouteName() const {
    return m_isSimulated ? std::string(FirstRoute().name) : "the PC's own";
}

std::string PcParts::DefaultScript() const {
    if (!m_isSimulated) {
        return "expect event 3 within 60000\nexpect event 1 within 60000\n";
    }
    // An unknown chip raises an interrupt only; it does not report visits.
    return m_chip != nullptr && !m_chip->reportsVisits
               ? "tap 1500\nexpect event 4 within 1000\n"
               : "tap 1500\nexpect event 3 within 0\nexpect event 1 within 0\n";
}

bool PcParts::Applies(const Command& command) const {
    return command.only.empty() || Any(command.only, [&](const std::string& name) {
               return HasRoute(name) || ChipName() == name;
           });
}

PcRoute PcParts::RouteOf(const Command& command) const {
    if (!command.route.empty()) {
        return FindKind(kRouteKinds, command.route)->route;
    }
    const auto keyboard = std::find_if(m_routes.begin(), m_routes.end(), IsKeyboard);
    return command.verb == Verb::kSend && keyboard != m_routes.end() ? *keyboard : m_routes.front();
}

void PcParts::Check(const Command& command) const {
    RefuseIf(!m_isSimulated && IsDeviceVerb(command.verb),
             "it needs simulated devices: choose --route " + Joined(NamesOf(kRouteKinds)));
    RefuseIf(!command.route.empty() && !HasRoute(command.route),
             "the PC has no tag on the " + command.route + " route");
    const std::string here = m_chip == nullptr ? "the " + RouteName() + " route" : ChipName();
    const Verb verb = command.verb;
    const auto hasChip = [&](ChipFrames frames) {
        return m_chip != nullptr && m_chip->frames == frames;
    };
    RefuseIf(IsOneOf(verb, {Verb::kConnect, Verb::kDisconnect}) && !Any(m_routes, IsKeyboard),
             "nothing can be connected on the " + RouteName() +
                 " route; \"on hid,ble\" before it plays it elsewhere only");
    RefuseIf(verb == Verb::kChipStatus && !hasChip(ChipFrames::kFanli),
             "only the chips " + ChipsWith(ChipFrames::kFanli) + " have one, not " + here);
    RefuseIf(verb == Verb::kChipBits && !hasChip(ChipFrames::kFm11n),
             "only the chips " + ChipsWith(ChipFrames::kFm11n) + " have them, not " + here);
    RefuseIf(verb == Verb::kBleClient && !HasRoute("ble"), "the PC has no ble route");
    if (verb == Verb::kSend) {
        const RouteKind& route = simulator::KindOf(RouteOf(command));
        const std::string name(route.name);
        RefuseIf(!route.IsKeyboard(), "the " + name + " route has no keyboard");
        const std::size_t most = route.format == simulator::BusFormat::kReports
                                     ? simulator::kReportSize
                                     : simulator::kMaxBleValue;
        RefuseIf(command.argument.size() > most,
                 Counted(command.argument.size(), "byte") + ": at most " + std::to_string(most) +
                     " go into one message on the " + name + " route");
    } else if (verb == Verb::kFault) {
        Faults(command.argument);
    }
}

simulator::PcFaults PcParts::Faults(const std::string& plan) const {
    std::string error;
    const auto faults = simulator::PcFaults::Parse(plan == kNoFaults ? "" : plan, m_routes, error);
    RefuseIf(!faults, error);
    return *faults;
}

}  // namespace lab
