// A reference to an array that is not there, as a host's cast of a null pointer makes it.
#pragma once

#include <cstddef>

template <class Byte, std::size_t Size>
Byte (&NoArray())[Size] {
    // Volatile, so that the compiler cannot see the null and reason from it.
    using Array = Byte[Size];
    Array* volatile nothing = nullptr;
    return *nothing;
}
