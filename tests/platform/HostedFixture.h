// Shared by the tests of the hosted layer: threads from lambdas, and a body run on both clocks.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "platform/hosted/Kernel.h"
#include "platform/platform.h"
#include "tests/support/Seeds.h"

namespace hosted_test {

/// Starts a thread that runs `body`. The caller closes the handle.
inline HANDLE StartThread(const std::function<void()>& body) {
    auto owned = std::make_unique<std::function<void()>>(body);
    const LPTHREAD_START_ROUTINE routine = [](LPVOID argument) -> DWORD {
        (*std::unique_ptr<std::function<void()>>(static_cast<std::function<void()>*>(argument)))();
        return 0;
    };
    return CreateThread(nullptr, 0, routine, owned.release(), 0, nullptr);  // the thread deletes it
}

/// Waits for the end of these threads and closes their handles.
inline void JoinThreads(const std::vector<HANDLE>& threads) {
    for (const HANDLE thread : threads) {
        EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
        EXPECT_TRUE(CloseHandle(thread));
    }
}

/// Blocks until `count` threads other than the caller wait for events.
inline void AwaitEventWaiters(std::size_t count) {
    const auto enough = [count] {
        std::size_t found = 0;
        std::istringstream lines(hosted::DescribeThreads());
        for (std::string line; std::getline(lines, line);) {
            found += line.find("waits for event") != std::string::npos ? 1 : 0;
        }
        return found >= count;
    };
    EXPECT_TRUE(hosted::WaitFor(enough, hosted::kForever, "the waiters"));
}

inline HANDLE NewEvent(bool manualReset) {
    return CreateEventW(nullptr, manualReset ? TRUE : FALSE, FALSE, nullptr);
}

/// Runs the body under a number of seeds and on the free-running clock. It must leave no handle, no
/// request and no thread.
inline void OnBothClocks(const std::function<void()>& body, unsigned seeds = 20,
                         const hosted::ScheduledOptions& options = {}) {
    const auto checked = [&] {
        body();
        const hosted::LiveCounts left = hosted::Live();
        EXPECT_EQ(left.handles + left.requests, 0U);
        EXPECT_TRUE(hosted::WaitFor([] { return hosted::Live().threads == 0; }, hosted::kForever,
                                    "the end of all threads"));
    };
    testing_support::ForEachSeed(seeds, checked, options);
    EXPECT_EQ(testing_support::RunInChild(checked), 0) << "on the free-running clock";
}

}  // namespace hosted_test
