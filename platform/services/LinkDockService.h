// The Bluetooth client of a service on the PC, "LinkDockService.dll". All results are int; a
// negative result is failure. The stand-in that this project builds has the same contract.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/services/linkdock_export.h"

namespace LinkDockService {

class LINKDOCK_EXPORT BLEClient {
  public:
    /// Receives what a subscribed characteristic notifies. The order of the operations is the
    /// order of the service's own class. The client calls them through the object alone, so they
    /// are empty here and not taken from the DLL, which may not export them.
    class INotification {
      public:
        virtual void OnConnectionChange(int /*state*/) {}
        /// Comes on any thread, also on the caller's inside a call of the client. A second call may
        /// come before the first one has returned.
        virtual void OnNotify(const std::vector<std::uint8_t>& /*value*/) {}
        virtual ~INotification() = default;
    };

    /// The process's client, or null if there is none.
    static BLEClient* GetInstance();

    int BleClientConnect(std::uint64_t address);
    int BleClientDisConnect(std::uint64_t address);

    /// Keeps the sink and calls its OnNotify for each notification until unsubscribed.
    int BleClientSubscribeNotify(std::uint64_t address, const std::string& service,
                                 const std::string& characteristic, INotification* sink);

    /// Ends the deliveries: none runs once this has returned, but for one that this call comes out
    /// of. When it fails, they may go on.
    int BleClientUnsubscribeNotify(std::uint64_t address, const std::string& service,
                                   const std::string& characteristic);

    /// Writes the value whole, at most 890 bytes.
    int BleClientWrite(std::uint64_t address, const std::string& service,
                       const std::string& characteristic, const std::vector<std::uint8_t>& value);
};

}  // namespace LinkDockService
