// Threads of tests, made of Win32 calls alone, for every platform.
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "platform/platform.h"

namespace testing_support {

/// Starts a thread that runs `body`. The caller closes the handle.
inline HANDLE StartThread(std::function<void()> body) {
    using Body = std::function<void()>;
    const LPTHREAD_START_ROUTINE run = [](LPVOID argument) -> DWORD {
        (*std::unique_ptr<Body>(static_cast<Body*>(argument)))();
        return 0;
    };
    return CreateThread(nullptr, 0, run, new Body(std::move(body)), 0, nullptr);
}

}  // namespace testing_support
