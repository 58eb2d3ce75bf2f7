// The table of routes. A new route is one file that implements Route, and one row here.
#include "platform/NeverDestroyed.h"
#include "routes/Route.h"

Route& BleRoute();
Route& HidRoute();
Route& ChipRoute();

const std::vector<Route*>& Routes() {
    static const platform::NeverDestroyed<std::vector<Route*>> routes{std::vector<Route*>{
        &BleRoute(),
        &HidRoute(),
        &ChipRoute(),
    }};
    return routes.value;
}

OperationScope::~OperationScope() {
    for (Route* const route : Routes()) {
        route->AfterOperation();
    }
}
