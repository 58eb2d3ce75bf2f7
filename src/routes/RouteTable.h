// The table of all routes.
#pragma once

#include <vector>

#include "routes/Route.h"

/// All routes, in the order in which they get an image. A device start looks for its device in
/// the opposite order. Never destroyed.
const std::vector<Route*>& Routes();

/// Stands at the head of each operation of a manager that may call the Bluetooth client, before its
/// locks, and calls AfterOperation of every route when the operation has given them back.
class OperationScope {
  public:
    OperationScope() = default;
    ~OperationScope();
    OperationScope(const OperationScope&) = delete;
    OperationScope& operator=(const OperationScope&) = delete;
};
