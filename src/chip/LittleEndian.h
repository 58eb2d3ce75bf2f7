// Numbers in the answers of spb4 chips, which stand there low byte first.
#pragma once

#include <cstddef>
#include <cstdint>

/// The number of `Size` bytes, 1 to 4, that begins at `bytes`.
template <std::size_t Size>
std::uint32_t LittleEndian(const std::uint8_t* bytes) {
    static_assert(Size >= 1 && Size <= sizeof(std::uint32_t));
    std::uint32_t value = 0;
    for (std::size_t i = Size; i > 0; --i) {
        value = value << 8 | bytes[i - 1];
    }
    return value;
}
