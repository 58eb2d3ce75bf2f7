#include "lab/PcParts.h"

#include <algorithm>

#include "lab/Failure.h"
#include "simulator/Chip.h"
#include "simulator/Pc.h"

namespace lab {

namespace {

constexpr char kDefaultRoute[] = "i2c";
constexpr char kDefaultChip[] = "fm11nt081";
constexpr char kNoFaults[] = "none";

std::vector<std::string> SplitList(const std::string& list) {
    std::vector<std::string> entries;
    for (std::size_t at = 0; at <= list.size();) {
        const std::size_t comma = std::min(list.find(',', at), list.size());
        entries.push_back(list.substr(at, comma - at));
        at = comma + 1;
    }
    return entries;
}

std::string JoinedList(const std::vector<std::string>& entries) {
    std::string list;
    for (const std::string& entry : entries) {
        list += (list.empty() ? "" : ", ") + entry;
    }
    return list;
}

}  // namespace

PcParts::PcParts(const PcOptions& options, const std::vector<std::string>& supported)
    : m_names(SplitList(options.route.value_or(kDefaultRoute))),
      m_chip(options.chip.value_or(kDefaultChip)) {
    for (const std::string& name : m_names) {
        const auto route = simulator::RouteByName(name);
        const std::string place = options.routePlace + options.route.value_or("") + ": ";
        if (!route || std::find(supported.begin(), supported.end(), name) == supported.end()) {
            throw WrongCall(place + "expected one of " + JoinedList(supported));
        }
        if (std::find(m_routes.begin(), m_routes.end(), *route) != m_routes.end()) {
            throw WrongCall(place + "a route is given twice");
        }
        m_routes.push_back(*route);
    }
    const std::string place = options.chipPlace + m_chip + ": ";
    if (options.chip && !HasChip()) {
        throw WrongCall(place + "the " + Route() + " route has no chip to choose");
    }
    const std::string problem = simulator::ChipProblem(m_routes, m_chip);
    if (!problem.empty()) {
        throw WrongCall(place + problem);
    }
    if (options.fault) {
        if (options.fault->find_first_not_of(" \t\r\n") == std::string::npos) {
            throw WrongCall("--fault \"" + *options.fault + "\": a plan is needed, or none");
        }
        try {
            Faults(*options.fault);
        } catch (const WrongCall& problem) {
            throw WrongCall("--fault: " + std::string(problem.what()));
        }
    }
}

bool PcParts::HasRoute(const std::string& name) const {
    return std::find(m_names.begin(), m_names.end(), name) != m_names.end();
}

bool PcParts::HasFanli() const {
    return HasChip() && simulator::IsFanliKind(m_chip);
}

simulator::PcFaults PcParts::Faults(const std::string& plan) const {
    std::string error;
    const auto faults = simulator::PcFaults::Parse(plan == kNoFaults ? "" : plan, m_routes, error);
    if (!faults) {
        throw WrongCall(error);
    }
    return *faults;
}

}  // namespace lab
