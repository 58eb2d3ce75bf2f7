// A simulated phone that stays at a tag until it is taken away. Used by the simulated stage only.
#pragma once

#include <memory>

#include "simulator/Phone.h"

namespace lab {

class HeldPhone : public std::enable_shared_from_this<HeldPhone> {
  public:
    /// The tag must live as long as the process. `report` is called under hosted::DeviceLock.
    HeldPhone(simulator::TagRadio& tag, simulator::Phone::Reporter report);

    // The caller holds hosted::DeviceLock.
    void Step();
    void TakeAway();

  private:
    simulator::TagRadio& m_tag;
    simulator::Phone m_phone;
    bool m_away = false;
};

}  // namespace lab
