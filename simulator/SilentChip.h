// A bus address without a chip: no transfer is acknowledged.
#pragma once

#include "simulator/Chip.h"

namespace simulator {

class SilentChip final : public Chip {
  private:
    bool Write(Micros, const Bytes&) override { return false; }
    std::optional<Bytes> Read(Micros, std::size_t) override { return std::nullopt; }

    bool Enter(Micros) override { return false; }
    void Leave(Micros) override {}
    bool Select(Micros) override { return false; }
    std::optional<PageQuad> ReadPages(Micros, unsigned) override { return std::nullopt; }

    bool RadioOn() const override { return false; }
};

}  // namespace simulator
