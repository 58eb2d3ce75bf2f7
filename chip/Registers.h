// The chip registers that more than one file names.
#pragma once

#include <cstdint>

/// Where the chip tells what it is.
inline constexpr std::uint16_t kIdentityRegister = 0x0000;

