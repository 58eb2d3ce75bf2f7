// A host that runs on the scheduled clock, for fuzzers of what devices tell. The clock can be
// started once a process, so one host lives through all inputs; each input begins and ends with
// the host at rest.
#pragma once

#include <tuple>
#include <vector>

#include "tests/support/Desk.h"

namespace fuzz {

using testing_support::Desk;
using testing_support::Number;

/// One call of the listener: event, route, number.
using Event = std::tuple<int, int, Number>;

/// Starts the clock, with the layer's limit on steps out of the way. From here on a check of the
/// desk's that fails ends the process. To be called first.
bool StartClock();

/// What the listener heard since the last call. Forgets the desk's log as well, which would grow.
std::vector<Event> TakeEvents(Desk& desk);

/// What the listener must hear of a keyboard's frames, each from its type byte on.
class Expected {
  public:
    explicit Expected(int route) : m_route(route) {}
    void Add(const std::vector<std::uint8_t>& frame);
    const std::vector<Event>& Events() const { return m_events; }

  private:
    int m_route;
    Number m_number{};
    std::vector<Event> m_events;
};

}  // namespace fuzz
