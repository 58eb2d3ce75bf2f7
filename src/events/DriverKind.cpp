#include "events/DriverKind.h"

std::atomic<bool> g_isI2cDriver{false};
std::atomic<bool> g_isUsbDriver{false};

int DriverRoute() {
    if (g_isI2cDriver) {
        return kRouteI2c;
    }
    return g_isUsbDriver ? kRouteUsb : kRouteNone;
}
