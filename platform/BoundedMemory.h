// Bounded memory functions that report failure by result. They stand in a file of their own so
// that the compiler cannot conclude, from a caller's reference, that a pointer is never null.
#pragma once

#include <cstddef>

namespace platform {

/// Copies `count` bytes. 0, or an error number: the destination is null, or the source is null or
/// `count` above `size`, in which case the whole destination is cleared. A count of 0 always works
/// on a destination that is there.
int memcpy_s(void* destination, std::size_t size, const void* source, std::size_t count);

/// Sets the first `count` bytes. 0, or an error number: the destination is null, or `count` is
/// above `size`, in which case all `size` bytes are set.
int memset_s(void* destination, std::size_t size, int value, std::size_t count);

}  // namespace platform
