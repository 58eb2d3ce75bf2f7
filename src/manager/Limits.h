// Results of the public operations of manager and message, and the limits of a message's fields.
#pragma once

#include <cstddef>

inline constexpr int kSuccess = 0;
inline constexpr int kFailure = -1;

/// The longest URL that a message stores, in bytes. Less fits on a tag: see
/// imageformat::kMaxUriSize.
inline constexpr std::size_t kMaxUrlSize = 255;
