// The chip registers that more than one file names.
#pragma once

#include <cstdint>

/// Where the chip has its identity bytes.
inline constexpr std::uint16_t kIdentityRegister = 0x0000;
