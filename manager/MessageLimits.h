// Limits of a message's fields, for the message itself and for the manager that takes it over.
#pragma once

#include <cstddef>

/// The longest URL that a message stores, in bytes. Less fits on a tag: see
/// imageformat::kMaxUriSize.
inline constexpr std::size_t kMaxUrlSize = 255;
