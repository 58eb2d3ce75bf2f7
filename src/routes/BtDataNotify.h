// The sink of the Bluetooth keyboard's notifications: field reports and the number.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/services/LinkDockService.h"

inline constexpr int kRouteBle = 4;

/// Receives the keyboard's notifications, on whichever thread the client delivers on, possibly
/// inside one of the client's own calls and on two threads at once. A sink that is not the current
/// one (see BleDelivery) takes nothing.
class BtDataNotify final : public LinkDockService::BLEClient::INotification {
  public:
    void OnNotify(const std::vector<std::uint8_t>& value) override;
};
