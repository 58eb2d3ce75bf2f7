// A new route is one file that implements Route, and one row here.
#include "routes/RouteTable.h"

#include "platform/NeverDestroyed.h"

Route& BleRouteInstance();
Route& HidRouteInstance();
Route& ChipRouteInstance();

const std::vector<Route*>& Routes() {
    static const platform::NeverDestroyed<std::vector<Route*>> routes{std::vector<Route*>{
        &BleRouteInstance(),
        &HidRouteInstance(),
        &ChipRouteInstance(),
    }};
    return routes.value;
}

OperationScope::~OperationScope() {
    for (Route* const route : Routes()) {
        route->AfterOperation();
    }
}
