// A driver between the emulation and another driver. It lets the requests that a fault plan
// names fail, without the other driver noticing.
#pragma once

#include <array>
#include <memory>
#include <vector>

#include "platform/emulation/Driver.h"
#include "simulator/FaultPlan.h"

namespace simulator {

/// Time that a request with the action "fail" is pending.
constexpr Micros kFaultPendingTime = 100;

class FaultyDriver : public emulation::Driver, public std::enable_shared_from_this<FaultyDriver> {
  public:
    explicit FaultyDriver(std::shared_ptr<emulation::Driver> inner) : m_inner(std::move(inner)) {}

    DWORD Open() override;
    void Close() override;
    DWORD Start(const emulation::RequestPtr& request) override;
    void Cancel(const emulation::RequestPtr& request) override;

    // The back door; under emulation::DeviceLock.

    /// Counts requests from 1 again. A device that an earlier plan removed is back.
    void SetPlan(FaultPlan plan);
    /// Fails what is pending and everything from now on; SetPlan brings the device back.
    void Unplug() { Disappear(); }
    std::size_t FaultsHit() const { return m_hits; }

  private:
    class Forwarded;

    const Fault* Next(FaultTarget target);
    DWORD Forward(const emulation::RequestPtr& request, const Fault* fault);
    void Withdraw(const std::shared_ptr<Forwarded>& forwarded);
    void Disappear();
    void Forget(const emulation::Request* outer);

    std::shared_ptr<emulation::Driver> m_inner;
    FaultPlan m_plan;
    std::array<std::uint32_t, 6> m_seen{};  // requests so far, by FaultTarget
    std::vector<std::shared_ptr<Forwarded>> m_forwarded;
    std::vector<emulation::RequestPtr> m_held;  // requests that never reach m_inner
    std::size_t m_hits = 0;
    bool m_gone = false;
};

}  // namespace simulator
