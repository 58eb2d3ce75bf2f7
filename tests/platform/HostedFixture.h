// What the tests of the hosted layer share: threads from lambdas, a driver that does as it is told,
// and a body run on both clocks.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/hosted/Kernel.h"
#include "platform/platform.h"
#include "tests/support/Seeds.h"

namespace hosted_test {

/// Starts a thread that runs `body`; the result is for the caller to close.
inline HANDLE Go(std::function<void()> body) {
    auto owned = std::make_unique<std::function<void()>>(std::move(body));
    const LPTHREAD_START_ROUTINE routine = [](LPVOID argument) -> DWORD {
        (*std::unique_ptr<std::function<void()>>(static_cast<std::function<void()>*>(argument)))();
        return 0;
    };
    const HANDLE thread = CreateThread(nullptr, 0, routine, owned.get(), 0, nullptr);
    static_cast<void>(owned.release());  // the thread's own now
    return thread;
}

inline void Join(HANDLE thread) {
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    EXPECT_TRUE(CloseHandle(thread));
}

/// Blocks until `count` threads other than the caller wait for an object of that name.
inline void AwaitWaiters(std::size_t count, const std::string& what) {
    const auto enough = [&] {
        const std::string threads = hosted::DescribeThreads();
        std::size_t found = 0;
        for (std::size_t at = 0;
             (at = threads.find("waits for " + what + " 0x", at)) != std::string::npos; ++at) {
            ++found;
        }
        return found >= count;
    };
    EXPECT_TRUE(hosted::WaitFor(enough, hosted::kForever, "the waiters"));
}

inline HANDLE NewEvent(bool manualReset) {
    return CreateEventW(nullptr, manualReset ? TRUE : FALSE, FALSE, nullptr);
}

struct FakeDriver : hosted::Driver {
    DWORD answer = ERROR_IO_PENDING;
    DWORD errorAtClose = 0;  // requests are failed with it by the driver; zero leaves them
    std::size_t closed = 0;
    std::size_t cancelled = 0;
    std::vector<hosted::RequestPtr> requests;

    void Close() override {
        ++closed;
        for (std::size_t i = 0; errorAtClose != 0 && i < requests.size(); ++i) {
            requests[i]->Fail(errorAtClose);
        }
    }
    DWORD Start(const hosted::RequestPtr& request) override {
        requests.push_back(request);
        if (answer == ERROR_SUCCESS) {
            request->Complete(nullptr, request->length());
        }
        return answer;
    }
    void Cancel(const hosted::RequestPtr& /*request*/) override { ++cancelled; }
};

constexpr const wchar_t* kPath = L"\\\\.\\FAKE";

inline HANDLE Open(const wchar_t* path = kPath, DWORD share = 0) {
    return CreateFileW(path, GENERIC_READ | GENERIC_WRITE, share, nullptr, OPEN_EXISTING,
                       FILE_FLAG_OVERLAPPED, nullptr);
}

/// Runs the body under a number of seeds and on the free-running clock; it must leave nothing live.
inline void OnBothClocks(const std::function<void()>& body, unsigned seeds = 20) {
    const auto checked = [&] {
        body();
        const hosted::LiveCounts left = hosted::Live();
        EXPECT_EQ(left.handles + left.requests, 0U);
        EXPECT_TRUE(hosted::WaitFor([] { return hosted::Live().threads == 0; }, hosted::kForever,
                                    "the end of all threads"));
    };
    testing_support::ForEachSeed(seeds, checked);
    EXPECT_EQ(testing_support::RunInChild(checked), 0) << "on the free-running clock";
}

}  // namespace hosted_test
