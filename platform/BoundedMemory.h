// Bounded memory functions that report failure by their result. They are defined in a source file
// of their own: inlined, the compiler could conclude from a caller's reference that a pointer is
// never null, and drop the check.
#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

/// Copies `count` bytes into a destination of `size` bytes. Returns 0, or an error number if the
/// destination is null, or if the source is null or `count` is above `size`; in the last two cases
/// the whole destination is cleared. A count of 0 fails only for a null destination.
int memcpy_s(void* destination, std::size_t size, const void* source, std::size_t count);

/// Sets the first `count` bytes of a destination of `size` bytes. Returns 0, or an error number if
/// the destination is null, or if `count` is above `size`; in that case all `size` bytes are set.
int memset_s(void* destination, std::size_t size, int value, std::size_t count);

// A field of fixed size, with the checks of the functions above. True when they have returned 0.
template <std::size_t Size>
bool CopyField(std::uint8_t* field, const std::uint8_t* source) {
    return memcpy_s(field, Size, source, Size) == 0;
}
template <std::size_t Size>
bool ClearField(std::uint8_t (&field)[Size]) {
    return memset_s(field, Size, 0, Size) == 0;
}

}  // namespace platform
