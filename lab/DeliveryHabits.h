// The habits of the stand-in Bluetooth client, as scripts choose them.
#pragma once

#include <map>
#include <string>

namespace lab {

/// By the fields of the script's "ble-client".
void ApplyDeliveryHabits(const std::map<std::string, std::string>& fields);

}  // namespace lab
