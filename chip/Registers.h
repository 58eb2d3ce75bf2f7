// The chip registers that more than one file names.
#pragma once

#include <cstdint>

/// Where the chip tells what it is.
inline constexpr std::uint16_t kIdentityRegister = 0x0000;

/// First register of the tag image: image offset i lies at register 16 + i.
inline constexpr std::uint16_t kImageRegister = 0x0010;
