// The link to the Bluetooth keyboard, and the sink of its notifications.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "platform/services/LinkDockService.h"

/// The keyboard is connected: images and number reads go there too. Written by connect and
/// disconnect, read by every operation.
extern std::atomic<bool> g_isBtConnected;

/// The address that the host connected last. Written by connect, read by writes and disconnect.
extern std::atomic<std::uint64_t> g_btAddr;

/// The client that the keyboard was connected through, null before the first connect. Not owned.
extern std::atomic<LinkDockService::BLEClient*> g_bleClient;

inline constexpr int kRouteBle = 4;

/// Receives the keyboard's notifications, on whichever thread the client delivers on, possibly
/// inside one of the client's own calls and on two threads at once. A sink that is not the current
/// one (see BleDelivery) takes nothing.
class BtDataNotify final : public LinkDockService::BLEClient::INotification {
  public:
    void OnNotify(const std::vector<std::uint8_t>& value) override;
};
