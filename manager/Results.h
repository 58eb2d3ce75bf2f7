// Results of the public operations of manager and message.
#pragma once

inline constexpr int kSuccess = 0;
inline constexpr int kFailure = -1;
