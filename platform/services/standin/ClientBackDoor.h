// The back door of the stand-in Bluetooth client: the device that it talks to, the calls that fail,
// and the threads that notifications come on. For simulated devices, tests and the lab; a host
// never sees it.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/services/LinkDockService.h"

namespace LinkDockService {

/// Set once nothing is subscribed to the device any more.
using StopToken = std::atomic<bool>;

/// What a subscription or a write is for.
struct Characteristic {
    std::uint64_t address;  ///< of the device
    std::string service;
    std::string id;

    bool operator==(const Characteristic& other) const {
        return address == other.address && service == other.service && id == other.id;
    }
};

/// The device at the other end of the air. Called by the client with no lock held, from any
/// thread; results are passed on to the client's caller, negative for failure.
struct LINKDOCK_EXPORT BlePeer {
    virtual ~BlePeer();
    virtual int Connect(std::uint64_t address) = 0;
    virtual int Disconnect(std::uint64_t address) = 0;
    virtual int Subscribe(const Characteristic& to, bool on) = 0;
    virtual int Write(const Characteristic& to, const std::vector<std::uint8_t>& value) = 0;

    /// Called by the client's delivery threads, maybe by several at once: blocks until a
    /// notification is due, puts it into `value` and returns true; or until `stop` is set, then
    /// returns false. It may return false early. It must block in a way that the platform knows of
    /// (on the emulation: emulation::WaitFor). Delays are the peer's own.
    virtual bool WaitNotification(const StopToken& stop, std::vector<std::uint8_t>& value) = 0;

    /// A stop token has been set: every WaitNotification looks at its token again.
    virtual void Wake() = 0;
};

/// Chooses the device; null for none, and every call then fails. Subscriptions that are under way
/// keep the device that they were made with.
LINKDOCK_EXPORT void SetPeer(std::shared_ptr<BlePeer> peer);

enum class BleCall { kConnect, kDisconnect, kSubscribe, kUnsubscribe, kWrite };

/// The `nth` call of this kind from now on (from 1) fails with `result` and does nothing else; but
/// an unsubscription that fails still ends the deliveries, unless
/// DeliveryHabits::afterRefusedUnsubscribe is set. Calls add up.
LINKDOCK_EXPORT void FailCall(BleCall call, unsigned nth, int result = -1);

/// Where and when sinks are called. By default one thread of the client's calls them, one
/// notification at a time, and never inside a call that the host makes.
struct DeliveryHabits {
    /// BleClientSubscribeNotify and BleClientWrite wait up to so many milliseconds for a
    /// notification, such as a field report or the answer to a request. The first one that comes
    /// is delivered inside the call, on its caller's thread. Zero: no delivery inside.
    unsigned insideSubscribeMs = 0;
    unsigned insideWriteMs = 0;

    /// So many threads deliver. With two, two notifications can be delivered at once and end in
    /// any order. Counts from the next subscription on.
    unsigned threads = 1;

    /// An unsubscription that FailCall fails leaves the deliveries running, until a later
    /// unsubscription or disconnection.
    bool afterRefusedUnsubscribe = false;
};

/// Any thread, at any time.
LINKDOCK_EXPORT void SetDeliveryHabits(const DeliveryHabits& habits);

/// True: GetInstance returns null.
LINKDOCK_EXPORT void SetNoInstance(bool none);

/// Takes back every fault that was set and not used. The habits stay.
LINKDOCK_EXPORT void ClearFaults();

/// Delivery threads that have been started and have not ended.
LINKDOCK_EXPORT unsigned DeliveryThreads();

}  // namespace LinkDockService
