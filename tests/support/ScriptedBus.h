// A kernel driver whose reads are scripted, and an open device as the device start leaves it.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <memory>

#include "platform/platform.h"
#include "simulator/FaultyDriver.h"
#include "tests/support/SeededRuns.h"
#include "transfer/OpenDevice.h"
#include "transfer/WaitForCommand.h"

namespace testing_support {

constexpr DWORD kBusError = 1117;
constexpr wchar_t kScriptedPath[] = L"\\\\.\\SCRIPTED";

/// Gives each read its bytes. A read that has none fails with kBusError; all else succeeds.
class ScriptedBus final : public emulation::Driver {
  public:
    std::deque<simulator::Bytes> reads;
    bool endsAtOnce = false;    ///< in the call that starts the request, instead of later
    std::size_t transfers = 0;  ///< so far

    DWORD Start(const emulation::RequestPtr& request) override {
        const bool isRead = request->kind() == emulation::Request::Kind::kRead;
        simulator::Bytes bytes(isRead ? 0 : request->length());
        if (isRead && !reads.empty()) {
            bytes = reads.front();
            reads.pop_front();
        }
        const bool fails = isRead && bytes.empty();
        ++transfers;
        const auto end = [request, bytes, fails] {
            fails ? request->Fail(kBusError) : request->Complete(bytes.data(), bytes.size());
        };
        if (endsAtOnce) {
            end();
            return ERROR_SUCCESS;
        }
        emulation::After(0, end);
        return ERROR_IO_PENDING;
    }
};

/// Opens DeviceHandle on a ScriptedBus and creates the event of the transfers. Holds a lock of the
/// device mutex's rank, as all that transfer do. Expects in the end that no request is left.
struct ScriptedDevice : private OneSeed {
    ScriptedDevice() {
        emulation::AddDevice(kScriptedPath, faulty);
        OpenDevice::Get().TakeOver(OpenDevice::Open(kScriptedPath, 0));
        g_ioEvent.value.Create(true);
    }
    ~ScriptedDevice() {
        EXPECT_EQ(emulation::Live().requests, 0U);
        OpenDevice::Get().Close();
        g_ioEvent.value.Close();
        emulation::RemoveDevice(kScriptedPath);
    }
    /// A plan of faults, for requests that the bus then does not see.
    void SetFaults(const std::string& plan) const {
        std::string problem;
        faulty->SetPlan(simulator::FaultPlan::Parse(plan, problem).value());
    }
    const std::shared_ptr<ScriptedBus> bus = std::make_shared<ScriptedBus>();
    const std::shared_ptr<simulator::FaultyDriver> faulty =
        std::make_shared<simulator::FaultyDriver>(bus);

  private:
    platform::Mutex m_mutex{kDeviceLock};
    const platform::Lock m_lock{m_mutex};
};

}  // namespace testing_support
