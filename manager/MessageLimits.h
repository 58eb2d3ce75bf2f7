// Limits of a message's fields, for the message itself and for the manager that takes it over.
#pragma once

#include <cstddef>

/// The longest URL that a message stores, in bytes. What fits on a tag is less; the image judges.
inline constexpr std::size_t kMaxUrlSize = 255;
