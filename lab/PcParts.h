// What a simulated PC is made of, checked before anything is built: routes, chip and faults. Every
// pc with simulated devices uses it, so that all refuse the same with the same words.
#pragma once

#include <string>
#include <vector>

#include "lab/Pc.h"
#include "simulator/PcFaults.h"

namespace lab {

class PcParts {
  public:
    /// WrongCall for routes, a chip or a fault plan that no PC can have. `supported` are the routes
    /// that the PC can simulate.
    PcParts(const PcOptions& options, const std::vector<std::string>& supported);

    const std::vector<simulator::PcRoute>& Routes() const { return m_routes; }
    /// The first route.
    const std::string& Route() const { return m_names.front(); }
    bool HasRoute(const std::string& name) const;
    /// The chip of the first route; empty when it has none.
    std::string Chip() const { return HasChip() ? m_chip : std::string(); }
    bool HasFanli() const;  ///< on the first route
    /// The chip to build the PC with, also where the first route has none.
    const std::string& ChipToBuild() const { return m_chip; }

    /// "none" gives no faults. WrongCall for a plan that cannot be parsed.
    simulator::PcFaults Faults(const std::string& plan) const;

  private:
    bool HasChip() const { return Route() == "i2c" || Route() == "usb"; }

    std::vector<std::string> m_names;
    std::vector<simulator::PcRoute> m_routes;
    std::string m_chip;
};

}  // namespace lab
