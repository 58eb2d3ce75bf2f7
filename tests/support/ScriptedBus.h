// A kernel driver with scripted answers, and an open device as the device start leaves it.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include "platform/hosted/Kernel.h"
#include "platform/platform.h"
#include "transfer/OpenDevice.h"
#include "transfer/TransferState.h"

namespace testing_support {

constexpr DWORD kBusError = 1117;
constexpr wchar_t kScriptedPath[] = L"\\\\.\\SCRIPTED";

/// The end of one request.
struct Answer {
    enum class How { kPends, kAtOnce, kNever };
    How how = How::kPends;
    DWORD error = ERROR_SUCCESS;
    std::vector<std::uint8_t> bytes;
};
inline Answer Gives(std::vector<std::uint8_t> bytes) {
    return {Answer::How::kPends, ERROR_SUCCESS, std::move(bytes)};
}
inline Answer GivesAtOnce(std::vector<std::uint8_t> bytes) {
    return {Answer::How::kAtOnce, ERROR_SUCCESS, std::move(bytes)};
}
inline Answer Fails(DWORD error) {
    return {Answer::How::kPends, error, {}};
}
inline Answer Refuses(DWORD error) {
    return {Answer::How::kAtOnce, error, {}};
}
inline Answer NeverEnds() {
    return {Answer::How::kNever, ERROR_SUCCESS, {}};
}

/// Takes the answers of each kind in order. When they are used up a read fails with kBusError, and
/// everything else succeeds.
class ScriptedBus final : public hosted::Driver {
  public:
    std::deque<Answer> reads;
    std::deque<Answer> writes;
    std::deque<Answer> controls;
    std::size_t failAt = 0;     ///< this transfer of all fails with kBusError, whatever is scripted
    std::size_t transfers = 0;  ///< so far

    DWORD Start(const hosted::RequestPtr& request) override {
        using Kind = hosted::Request::Kind;
        const bool isRead = request->kind() == Kind::kRead;
        auto& script = isRead ? reads : request->kind() == Kind::kWrite ? writes : controls;
        Answer answer = isRead ? Fails(kBusError) : Gives({});
        if (!script.empty()) {
            answer = script.front();
            script.pop_front();
        }
        if (++transfers == failAt) {
            answer = Fails(kBusError);
        }
        const auto end = [request, answer, isRead] {
            if (answer.error != ERROR_SUCCESS) {
                return request->Fail(answer.error);
            }
            request->Complete(answer.bytes.data(),
                              isRead ? answer.bytes.size() : request->length());
        };
        if (answer.how == Answer::How::kPends) {
            hosted::After(0, end);
        } else if (answer.how == Answer::How::kAtOnce) {
            if (answer.error == ERROR_SUCCESS) {
                end();
            }
            return answer.error;
        }
        return ERROR_IO_PENDING;
    }
};

/// Opens DeviceHandle on a driver and creates the event of the transfers. Expects in the end that
/// no request is left.
class ScriptedDevice {
  public:
    explicit ScriptedDevice(std::shared_ptr<hosted::Driver> driver) {
        hosted::AddDevice(kScriptedPath, std::move(driver));
        OpenDevice::Get().TakeOver(OpenDevice::Open(kScriptedPath, 0));
        g_ioEvent.value.Create(true);
    }
    ~ScriptedDevice() {
        EXPECT_EQ(hosted::Live().requests, 0U);
        OpenDevice::Get().Close();
        g_ioEvent.value.Close();
        hosted::RemoveDevice(kScriptedPath);
    }
};

}  // namespace testing_support
