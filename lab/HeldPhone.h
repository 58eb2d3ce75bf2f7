// A phone that is held to a tag until somebody takes it away.
#pragma once

#include <memory>

#include "simulator/Phone.h"

namespace lab {

class HeldPhone : public std::enable_shared_from_this<HeldPhone> {
  public:
    /// The tag must live as long as the process. The report comes under hosted::DeviceLock.
    HeldPhone(simulator::TagRadio& tag, simulator::Phone::Reporter report);

    // Under hosted::DeviceLock.
    void Step();
    void TakeAway();

  private:
    simulator::TagRadio& m_tag;
    simulator::Phone m_phone;
    bool m_away = false;
};

}  // namespace lab
