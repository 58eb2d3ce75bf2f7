// Applies a fault plan to requests before they reach the inner driver.
#include "simulator/FaultyDriver.h"

#include <algorithm>
#include <utility>

#include "platform/emulation/Kernel.h"
#include "simulator/SpbDriver.h"

namespace simulator {

// The request that the inner driver gets in place of the layer's. It can end short or late.
class FaultyDriver::Forwarded : public emulation::Request {
  public:
    Forwarded(const emulation::RequestPtr& outer, std::weak_ptr<FaultyDriver> driver,
              const Fault* fault)
        : Request(outer->kind(), outer->controlCode(), outer->data(), outer->length(),
                  outer->thread()),
          m_outer(outer),
          m_driver(std::move(driver)) {
        if (fault != nullptr) {
            m_short = fault->action == FaultAction::kShort ? fault->value : 0;
            m_late = fault->action == FaultAction::kLate ? fault->value * kMilli : 0;
        }
    }

    bool Pending() const override { return !m_ended && m_outer->Pending(); }

    void Complete(const std::uint8_t* bytes, std::size_t count) override {
        const std::size_t moved = count - std::min<std::size_t>(m_short, count);
        std::optional<Bytes> copy;
        if (bytes != nullptr) {
            copy.emplace(bytes, bytes + moved);
        }
        End([outer = m_outer, copy, moved] {
            outer->Complete(copy ? copy->data() : nullptr, moved);
        });
    }
    void Fail(DWORD error, std::size_t count) override {
        End([outer = m_outer, error, count] { outer->Fail(error, count); });
    }

    const emulation::RequestPtr& outer() const { return m_outer; }
    /// From now on it does not end the outer one. False: it has ended already.
    bool Abandon() { return !std::exchange(m_ended, true); }

  private:
    // A late request stays registered until then, so that closing or removing the device ends it.
    void End(std::function<void()> end) {
        if (std::exchange(m_ended, true)) {
            return;
        }
        const auto endNow = [driver = m_driver, outer = m_outer, end = std::move(end)] {
            if (const auto alive = driver.lock()) {
                alive->Forget(outer.get());
            }
            end();
        };
        if (m_late == 0) {
            endNow();
        } else {
            emulation::After(m_late, endNow);
        }
    }

    emulation::RequestPtr m_outer;
    std::weak_ptr<FaultyDriver> m_driver;
    std::uint32_t m_short = 0;
    Micros m_late = 0;
    bool m_ended = false;
};

void FaultyDriver::SetPlan(FaultPlan plan) {
    m_plan = std::move(plan);
    m_seen.fill(0);
    m_gone = false;
}

const Fault* FaultyDriver::Next(FaultTarget target) {
    const auto count = [this](FaultTarget which) -> std::uint32_t& {
        return m_seen[static_cast<std::size_t>(which)];
    };
    if (target != FaultTarget::kOpen) {
        ++count(FaultTarget::kAny);
    }
    const Fault* fault = m_plan.Find(target, ++count(target), count(FaultTarget::kAny));
    m_hits += fault != nullptr ? 1 : 0;
    return fault;
}

DWORD FaultyDriver::Open() {
    if (!m_gone) {
        if (const Fault* fault = Next(FaultTarget::kOpen)) {
            if (fault->action == FaultAction::kRefuse) {
                return fault->value;
            }
            Disappear();
        }
    }
    return m_gone ? ERROR_FILE_NOT_FOUND : m_inner->Open();
}

void FaultyDriver::Close() {
    m_inner->Close();
    for (const emulation::RequestPtr& request : std::exchange(m_held, {})) {
        request->Fail(ERROR_OPERATION_ABORTED);
    }
    // Those that the inner driver has ended and that wait for their late end.
    for (const auto& forwarded : std::exchange(m_forwarded, {})) {
        forwarded->outer()->Fail(ERROR_OPERATION_ABORTED);
    }
}

DWORD FaultyDriver::Start(const emulation::RequestPtr& request) {
    if (m_gone) {
        return ERROR_DEVICE_NOT_CONNECTED;
    }
    FaultTarget target = FaultTarget::kRead;
    if (request->kind() == emulation::Request::Kind::kWrite) {
        target = FaultTarget::kWrite;
    } else if (request->kind() == emulation::Request::Kind::kControl) {
        target = request->controlCode() == kControlInterrupt ? FaultTarget::kInterrupt
                                                             : FaultTarget::kControl;
    }
    const Fault* fault = Next(target);
    if (fault == nullptr) {
        return Forward(request, nullptr);
    }
    switch (fault->action) {
        case FaultAction::kRefuse:
            return fault->value;
        case FaultAction::kFail:
            m_held.push_back(request);
            emulation::After(kFaultPendingTime,
                             [weak = weak_from_this(), request, code = fault->value] {
                                 if (const auto self = weak.lock()) {
                                     self->Forget(request.get());
                                 }
                                 request->Fail(code);
                             });
            return ERROR_IO_PENDING;
        case FaultAction::kNever:
            m_held.push_back(request);
            return ERROR_IO_PENDING;
        case FaultAction::kGone:
            Disappear();
            return ERROR_DEVICE_NOT_CONNECTED;
        case FaultAction::kShort:
        case FaultAction::kLate:
            break;
    }
    return Forward(request, fault);
}

DWORD FaultyDriver::Forward(const emulation::RequestPtr& request, const Fault* fault) {
    const auto forwarded = std::make_shared<Forwarded>(request, weak_from_this(), fault);
    m_forwarded.push_back(forwarded);
    const DWORD result = m_inner->Start(forwarded);
    if (result == ERROR_SUCCESS) {
        // It has ended in the call; a late one is still pending for its caller.
        return request->Pending() ? ERROR_IO_PENDING : ERROR_SUCCESS;
    }
    if (result != ERROR_IO_PENDING) {
        Forget(request.get());
    }
    return result;
}

void FaultyDriver::Cancel(const emulation::RequestPtr& request) {
    const auto forwarded = m_forwarded;
    Forget(request.get());
    for (const auto& one : forwarded) {
        if (one->outer() == request) {
            Withdraw(one);
        }
    }
}

void FaultyDriver::Withdraw(const std::shared_ptr<Forwarded>& forwarded) {
    if (forwarded->Abandon()) {
        m_inner->Cancel(forwarded);
    }
}

void FaultyDriver::Disappear() {
    m_gone = true;
    const auto forwarded = std::exchange(m_forwarded, {});
    const auto held = std::exchange(m_held, {});
    for (const auto& one : forwarded) {
        Withdraw(one);
        one->outer()->Fail(ERROR_DEVICE_NOT_CONNECTED);
    }
    for (const emulation::RequestPtr& request : held) {
        request->Fail(ERROR_DEVICE_NOT_CONNECTED);
    }
}

void FaultyDriver::Forget(const emulation::Request* outer) {
    m_held.erase(std::remove_if(m_held.begin(), m_held.end(),
                                [outer](const auto& one) { return one.get() == outer; }),
                 m_held.end());
    m_forwarded.erase(
        std::remove_if(m_forwarded.begin(), m_forwarded.end(),
                       [outer](const auto& one) { return one->outer().get() == outer; }),
        m_forwarded.end());
}

}  // namespace simulator
