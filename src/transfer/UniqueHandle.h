// A handle of the system that closes itself.
#pragma once

#include <utility>

#include "platform/Check.h"
#include "platform/platform.h"

/// Owns one handle, or none. Both ways in which the system says "no handle", null and
/// INVALID_HANDLE_VALUE, are none. Closing leaves the last error as CloseHandle leaves it.
class UniqueHandle {
  public:
    UniqueHandle() = default;
    explicit UniqueHandle(HANDLE handle)
        : m_handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
    ~UniqueHandle() { Reset(); }
    UniqueHandle(UniqueHandle&& other) noexcept : m_handle(other.Release()) {}
    /// What was owned before is closed with `other`.
    UniqueHandle& operator=(UniqueHandle&& other) noexcept {
        std::swap(m_handle, other.m_handle);
        return *this;
    }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;

    explicit operator bool() const { return m_handle != nullptr; }

    /// The handle, null for none. Still owned.
    HANDLE get() const { return m_handle; }

    /// Gives the handle up to the caller.
    HANDLE Release() {
        const HANDLE handle = m_handle;
        m_handle = nullptr;
        return handle;
    }

    void Reset() {
        if (m_handle != nullptr) {
            const BOOL closed = CloseHandle(m_handle);
            TAGPORT_CHECK(closed != FALSE || GetLastError() != ERROR_INVALID_HANDLE);
            m_handle = nullptr;
        }
    }

  private:
    HANDLE m_handle = nullptr;
};
