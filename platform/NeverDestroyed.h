// A value of static storage duration that is not destroyed at the end of the process.
#pragma once

namespace platform {

/// Threads of the library may still wait on a mutex, a condition or an event when the process ends
/// or the library is unloaded; to destroy it then would hang or crash the exit.
template <class T>
union NeverDestroyed {
    T value;

    template <class... Arguments>
    constexpr explicit NeverDestroyed(Arguments&&... arguments)
        : value(static_cast<Arguments&&>(arguments)...) {}
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;
    // Not defaulted: the value's own destructor must not run.
    ~NeverDestroyed() {}  // NOLINT(modernize-use-equals-default)
};

}  // namespace platform
