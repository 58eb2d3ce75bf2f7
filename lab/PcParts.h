// What the PC of a run is made of: routes, chip and faults, checked before anything is built. Every
// kind of Pc has one, so that all refuse the same with the same words.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lab/Script.h"
#include "simulator/PcFaults.h"
#include "simulator/PcKinds.h"

namespace lab {

struct PcOptions {
    std::optional<std::string> route;     ///< one or several, separated by commas; none: i2c
    std::optional<std::string> chip;      ///< none: fm11nt081
    std::string routePlace = "--route ";  ///< begins messages about the route: where it was given
    std::string chipPlace = "--chip ";    ///< the same of the chip
    std::optional<std::string> fault;
    std::optional<std::uint64_t> seed;  ///< scheduled clock; none: real time
    std::int64_t late = 0;         ///< scheduled clock: how late a thread may run, in milliseconds
    unsigned priorityChanges = 0;  ///< scheduled clock: see emulation::ScheduledOptions
    bool bus = false;
    bool check = false;  ///< the run is judged
};

class PcParts {
  public:
    /// A PC with its own devices. A keyboard with a microcontroller may be among them.
    PcParts() : m_routes{simulator::PcRoute::kHid} {}
    /// WrongCall for routes, a chip or a fault plan that no PC can have. `supported` are the names
    /// of the routes that can be simulated here.
    PcParts(const PcOptions& options, const std::vector<std::string>& supported);

    /// In the order of kRouteKinds, whatever the order in which they were given.
    const std::vector<simulator::PcRoute>& Routes() const { return m_routes; }
    /// The first of them.
    const simulator::RouteKind& FirstRoute() const { return simulator::KindOf(m_routes.front()); }
    bool HasRoute(std::string_view name) const;
    std::vector<std::string> RouteNames() const;
    /// What this is as the name of a route: that of the first one, or "the PC's own".
    std::string RouteName() const;

    /// The kind of the simulated chip; null when there is none.
    const simulator::ChipKind* Chip() const { return m_chip; }
    std::string ChipName() const { return m_chip == nullptr ? "" : std::string(m_chip->name); }

    /// Played when no script is given.
    std::string DefaultScript() const;
    /// True unless the command is for other routes or chips.
    bool Applies(const Command& command) const;
    /// WrongCall for a command that this PC cannot carry out.
    void Check(const Command& command) const;
    /// The route of a command that names one or none. A "send" is for a keyboard.
    simulator::PcRoute RouteOf(const Command& command) const;

    /// "none" returns no faults. WrongCall for a plan that cannot be parsed.
    simulator::PcFaults Faults(const std::string& plan) const;

  private:
    std::vector<simulator::PcRoute> m_routes;
    const simulator::ChipKind* m_chip = nullptr;
    bool m_isSimulated = false;
};

}  // namespace lab
