// A simulated phone that stays at a tag until it is taken away.
#pragma once

#include <memory>

#include "simulator/Phone.h"

namespace simulator {

class HeldPhone : public std::enable_shared_from_this<HeldPhone> {
  public:
    /// The tag must live as long as the process. `report` is called under hosted::DeviceLock.
    HeldPhone(TagRadio& tag, Phone::Reporter report);

    // The caller holds hosted::DeviceLock.
    void Step();
    void TakeAway();

  private:
    TagRadio& m_tag;
    Phone m_phone;
    bool m_away = false;
};

}  // namespace simulator
