// What the kernel drivers of the simulated devices have in common. They run under the layer's
// device lock, so they need no lock of their own.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "platform/emulation/Driver.h"
#include "simulator/Basics.h"

namespace simulator {

constexpr DWORD kErrorInvalidFunction = 1;  // the result of an unknown control code

class ModelDriver : public emulation::Driver, public std::enable_shared_from_this<ModelDriver> {
  public:
    void Close() override { FailAll(ERROR_OPERATION_ABORTED); }
    void Cancel(const emulation::RequestPtr& request) override;

    /// Fails what is pending and everything from now on. Under emulation::DeviceLock.
    void Unplug();

  protected:
    using Requests = std::vector<emulation::RequestPtr>;

    /// Makes the request pending for `latency`; then Finish ends it, unless it has ended before.
    DWORD EndLater(Requests& queue, const emulation::RequestPtr& request, Micros latency);
    virtual void Finish(const emulation::RequestPtr& request) = 0;

    /// Runs `action` after `delay`, unless the driver has been destroyed.
    void After(Micros delay, std::function<void()> action);
    /// Removes the oldest request and returns it.
    static emulation::RequestPtr TakeFirst(Requests& queue);

    // What is pending, in the order in which it fails when the device is closed or unplugged.
    Requests m_first;
    Requests m_second;
    bool m_gone = false;

  private:
    void FailAll(DWORD error);
};

}  // namespace simulator
