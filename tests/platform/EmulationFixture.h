// Shared by the tests of this folder: first what is made of Win32 calls alone, then the two
// functions in which the tests of Win32 operations use the emulation, and on Windows real time.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cwchar>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "tests/support/Threads.h"
#ifndef _WIN32
#include "platform/emulation/Kernel.h"
#include "tests/support/SeededRuns.h"
#endif

namespace emulation_test {

using testing_support::StartThread;

/// Waits for the end of these threads and closes their handles.
inline void JoinThreads(const std::vector<HANDLE>& threads) {
    for (const HANDLE thread : threads) {
        EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
        EXPECT_TRUE(CloseHandle(thread));
    }
}

/// The last error of a call that gave `result`, zero for a success. Clears the last error.
inline DWORD ErrorOf(BOOL result) {
    const DWORD error = GetLastError();
    SetLastError(ERROR_SUCCESS);
    return result != FALSE ? ERROR_SUCCESS : error;
}

inline std::filesystem::path TemporaryPath() {
    return std::filesystem::temp_directory_path() / ("tagport-" + std::to_string(getpid()));
}

/// The value of a key in a file without a byte order mark.
constexpr char kUnmarked[] = "\xC3\xA9\xFF\xC0\x80x";

#ifdef _WIN32

/// Gives threads the time to come to their waits.
inline void AwaitEventWaiters(int /*count*/) {
    Sleep(300);
}

/// Runs the body, which must leave no handle.
inline void OnBothClocks(const std::function<void()>& body) {
    const auto handles = [] {
        DWORD count = 0;
        EXPECT_TRUE(GetProcessHandleCount(GetCurrentProcess(), &count));
        return count;
    };
    body();  // once before: the system makes handles of its own
    const DWORD before = handles();
    body();
    EXPECT_EQ(handles(), before);
}

/// True under Wine, which differs from Windows in this. Says so.
inline bool WineDiffers(const char* how) {
    static const bool isWine =
        GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
    if (isWine) {
        std::printf("Wine %s\n", how);
    }
    return isWine;
}

constexpr UINT kToUtf8 = CP_UTF8;

/// It is in the PC's code page. As UTF-8.
inline std::string UnmarkedAsUtf8() {
    WCHAR wide[64] = {};
    char utf8[256] = {};
    MultiByteToWideChar(CP_ACP, 0, kUnmarked, -1, wide, 64);
    WideCharToMultiByte(kToUtf8, 0, wide, -1, utf8, sizeof utf8, nullptr, nullptr);
    return utf8;
}

#else

inline bool WineDiffers(const char* /*how*/) {
    return false;
}

constexpr UINT kToUtf8 = CP_THREAD_ACP;  // whatever the code page

/// The code page is UTF-8. What is no UTF-8 is replaced.
inline std::string UnmarkedAsUtf8() {
    return "\xC3\xA9\xEF\xBF\xBD\xEF\xBF\xBDx";
}

/// Blocks until `count` threads wait for events.
inline void AwaitEventWaiters(int count) {
    const auto enough = [count] {
        const std::string threads = emulation::DescribeThreads();
        const std::string waits = "waits for event";
        std::size_t at = 0;
        for (int found = 0; found < count && at != std::string::npos; ++found) {
            at = threads.find(waits, at + 1);
        }
        return at != std::string::npos;
    };
    EXPECT_TRUE(emulation::WaitFor(enough, emulation::kForever, "the waiters"));
}

/// Runs the body under a number of seeds and on the free-running clock. It must leave no handle, no
/// request and no thread.
inline void OnBothClocks(const std::function<void()>& body) {
    const auto checked = [&] {
        body();
        const emulation::LiveCounts left = emulation::Live();
        EXPECT_EQ(left.handles + left.requests + left.threads, 0U);
    };
    testing_support::ForEachSeed(20, checked);
    EXPECT_EQ(testing_support::RunInChild(checked), 0) << "on the free-running clock";
}

#endif

/// The value of a key as UTF-8, or "?" and the last error: 2 is a missing file or key.
inline std::string ReadKey(const std::wstring& path) {
    WCHAR wide[255] = {};
    char narrow[1020] = {};
    SetLastError(ERROR_SUCCESS);
    const DWORD length = GetPrivateProfileStringW(L"PC_URI", L"key", L"?", wide, 255, path.c_str());
    EXPECT_EQ(length, std::wcslen(wide));
    WideCharToMultiByte(kToUtf8, 0, wide, -1, narrow, sizeof narrow, nullptr, nullptr);
    const std::string value = narrow;
    return value == "?" ? value + std::to_string(GetLastError()) : value;
}

}  // namespace emulation_test
