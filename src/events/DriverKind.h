// Which kernel driver there is, and the route that its events have. The process has one; all
// managers share it.
#pragma once

#include <atomic>

// Set by the device start when it chooses a route and never cleared; read by every operation and by
// the event threads.
extern std::atomic<bool> g_isI2cDriver;
extern std::atomic<bool> g_isUsbDriver;

// Routes of the listener's contract.
inline constexpr int kRouteNone = 0;  // no driver has been found
inline constexpr int kRouteI2c = 1;
inline constexpr int kRouteUsb = 2;

/// The route of the kernel driver, kRouteNone when there is none.
int DriverRoute();
