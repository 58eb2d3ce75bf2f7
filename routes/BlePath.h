// State of the Bluetooth keyboard's link and the sink of its notifications.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "platform/LinkDockService.h"

/// The keyboard is connected: images and number reads go there too. Written by connect and
/// disconnect, read by every operation.
extern std::atomic<bool> g_isBtConnected;

/// The address that the host connected last. Written by connect, read by writes and disconnect.
extern std::atomic<std::uint64_t> g_btAddr;

/// The client that the keyboard was connected through, null before the first connect. Not owned.
extern std::atomic<LinkDockService::BLEClient*> g_bleClient;

/// Receives the keyboard's notifications on the client's thread, with no lock held.
class BtDataNotify final : public LinkDockService::BLEClient::INotification {
  public:
    void OnNotify(const std::vector<std::uint8_t>& value) override;
};
