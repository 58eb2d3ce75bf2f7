// The type of the PC, which decides where the random number lies on its tag.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>

// The first shows no URI, the others show one each.
inline constexpr std::uint8_t kPcTypeBlank = 2;
inline constexpr std::uint8_t kPcTypeOrvane = 5;
inline constexpr std::uint8_t kPcTypeVelmo = 8;

/// The PC type last accepted: it chooses the register of the random number. Written by the
/// managers, read by number reads.
extern std::atomic<std::uint8_t> g_pcModel;

/// The URI size for which the number of this PC type is read back, whatever the size of the URI on
/// the tag is; nothing for a type that is not supported.
std::optional<std::size_t> ReadBackUriSize(std::uint8_t pcType);
