// Memory for frames and images, allocated without exceptions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

using Buffer = std::unique_ptr<std::uint8_t[]>;

/// `size` bytes of zero, or null when there is no memory to be had.
inline Buffer AllocateBuffer(std::size_t size) {
    return Buffer(new (std::nothrow) std::uint8_t[size]());
}
