// A kernel driver with scripted answers, and an open device as the device start leaves it.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/TraceLog.h"
#include "platform/hosted/Kernel.h"
#include "platform/platform.h"
#include "tests/support/LogRecorder.h"
#include "transfer/OpenDevice.h"
#include "transfer/TransferState.h"

namespace testing_support {

constexpr DWORD kBusError = 1117;

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

/// Answers in hexadecimal digits, one a word.
inline std::deque<Answer> Script(const std::string& text) {
    std::deque<Answer> answers;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        std::vector<std::uint8_t> bytes;
        for (std::size_t i = 0; i < word.size(); i += 2) {
            bytes.push_back(static_cast<std::uint8_t>(std::stoul(word.substr(i, 2), nullptr, 16)));
        }
        answers.push_back(Gives(std::move(bytes)));
    }
    return answers;
}

/// Texts in one line, for tables: "W 00 10, sleep 40, R 2".
inline std::string Joined(const std::vector<std::string>& texts) {
    std::string line;
    for (const std::string& text : texts) {
        line += (line.empty() ? "" : ", ") + text;
    }
    return line;
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
    std::size_t lastLength = 0;  ///< bytes of the last transfer

    DWORD Start(const hosted::RequestPtr& request) override {
        using Kind = hosted::Request::Kind;
        const Kind kind = request->kind();
        auto& script = kind == Kind::kRead ? reads : kind == Kind::kWrite ? writes : controls;
        Answer answer = kind == Kind::kRead ? Fails(kBusError) : Gives({});
        if (!script.empty()) {
            answer = script.front();
            script.pop_front();
        }
        lastLength = request->length();
        if (++transfers == failAt) {
            answer = Fails(kBusError);
        }
        const auto end = [request, answer, kind] {
            if (answer.error != ERROR_SUCCESS) {
                request->Fail(answer.error);
            } else {
                request->Complete(answer.bytes.data(),
                                  kind == Kind::kRead ? answer.bytes.size() : request->length());
            }
        };
        if (answer.how == Answer::How::kAtOnce) {
            if (answer.error == ERROR_SUCCESS) {
                end();
            }
            return answer.error;
        }
        if (answer.how == Answer::How::kPends) {
            hosted::After(0, end);
        }
        return ERROR_IO_PENDING;
    }
};

/// Opens DeviceHandle on a driver and creates the event of the transfers. Expects in the end that
/// no request is left.
class ScriptedDevice {
  public:
    explicit ScriptedDevice(std::shared_ptr<hosted::Driver> driver) {
        hosted::AddDevice(kPath, std::move(driver));
        OpenDevice::Get().TakeOver(OpenDevice::Open(kPath, 0));
        g_ioEvent.value.Create(true);
    }
    ~ScriptedDevice() {
        EXPECT_EQ(hosted::Live().requests, 0U);
        OpenDevice::Get().Close();
        g_ioEvent.value.Close();
        hosted::RemoveDevice(kPath);
    }
    ScriptedDevice(const ScriptedDevice&) = delete;
    ScriptedDevice& operator=(const ScriptedDevice&) = delete;

  private:
    static constexpr wchar_t kPath[] = L"\\\\.\\SCRIPTED";
};

/// Every line so far, with its level before it: "W text" or "E text".
inline std::vector<std::string> MarkedLines(const LogRecorder& log) {
    std::vector<std::string> lines;
    for (const LogRecorder::Line& line : log.Lines()) {
        lines.push_back((line.level == LOG_MESSAGE_LEVEL_ERROR ? "E " : "W ") + line.text);
    }
    return lines;
}

}  // namespace testing_support
