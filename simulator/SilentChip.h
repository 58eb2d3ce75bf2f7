// A bus address without a chip: no transfer is acknowledged, and each is counted.
#pragma once

#include "simulator/Chip.h"

namespace simulator {

class SilentChip final : public Chip {
  private:
    bool Write(Micros, const Bytes&) override {
        ++m_counters.naks;
        return false;
    }
    std::optional<Bytes> Read(Micros, std::size_t) override {
        ++m_counters.naks;
        return std::nullopt;
    }

    bool Enter(Micros) override { return false; }
    void Leave(Micros) override {}
    bool Select(Micros) override { return false; }
    std::optional<PageQuad> ReadPages(Micros, unsigned) override { return std::nullopt; }
    bool WritePage(Micros, unsigned, const Page&) override { return false; }

    Bytes Memory(unsigned, std::size_t count) const override { return Bytes(count); }
    void SetMemory(unsigned, const Bytes&) override {}
    bool RadioOn() const override { return false; }
    bool Locked() const override { return true; }
};

}  // namespace simulator
