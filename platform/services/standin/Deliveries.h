// Subscriptions and deliveries of the stand-in Bluetooth client. Only LinkDockService.cpp and
// Deliveries.cpp use it.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "platform/platform.h"
#include "platform/services/standin/ClientBackDoor.h"

namespace LinkDockService {

// Innermost of all: a host may hold any of its own locks when it calls the client.
constexpr platform::LockRank kClientRank = {10'000, "LinkDockService client"};

struct Subscription {
    Characteristic to;
    BLEClient::INotification* sink;
    std::shared_ptr<BlePeer> peer;
};
using SubscriptionPtr = std::shared_ptr<Subscription>;

// What the delivery threads wait for: the notifications of one device, until `stop` is set.
struct Stream {
    std::shared_ptr<BlePeer> peer;
    StopToken stop{false};
};

struct OwnedHandle {
    HANDLE handle = nullptr;
    ~OwnedHandle() {
        if (handle != nullptr) {
            CloseHandle(handle);
        }
    }
};
using ThreadPtr = std::shared_ptr<OwnedHandle>;

// A call of a sink that is running.
struct Delivery {
    SubscriptionPtr subscription;
    std::thread::id thread;
    bool unsubscribing = false;  // its thread waits in EndSubscriptions
};

// A call of the client that waits for a notification to deliver on its caller's thread.
struct WaitingCall {
    std::shared_ptr<BlePeer> peer;
    OwnedHandle received;  // event
    bool filled = false;
    std::vector<std::uint8_t> value;
};

// The state of the client. Under `mutex`.
struct State {
    platform::Mutex mutex{kClientRank};
    platform::ConditionVariable changed;  // a delivery or the thread has ended
    std::shared_ptr<BlePeer> peer;
    std::vector<SubscriptionPtr> subscriptions;
    std::shared_ptr<Stream> stream;  // null while nothing is subscribed
    std::vector<ThreadPtr> threads;  // the delivery threads that run
    std::vector<Delivery*> running;
    std::vector<WaitingCall*> waiting;
    std::map<BleCall, std::vector<std::pair<unsigned, int>>> faults;  // calls to go, result
    DeliveryHabits habits;
    bool noInstance = false;
};

// One for the process.
State& TheState();

// Holds its mutex.
class LockedState {
  public:
    LockedState() : m_lock(TheState().mutex) {}
    State* operator->() const { return &TheState(); }
    platform::Lock& lock() { return m_lock; }

  private:
    platform::Lock m_lock;
};

using Which = std::function<bool(const Subscription& subscription)>;

// Starts serving a subscription. False when there is no thread and none can be started.
bool BeginSubscription(const SubscriptionPtr& subscription);

// Removes subscriptions. Then waits until none of their deliveries runs and until the threads that
// have nothing left to serve have ended. A call that comes out of a delivery waits only for
// deliveries of other threads, and of these only for the ones that do not wait here themselves.
std::vector<SubscriptionPtr> EndSubscriptions(const Which& which);

// Makes a call of the client take the next notification, if one comes in time, and deliver it
// before the call returns. Constructed before the call reaches the device.
class InsideDelivery {
  public:
    InsideDelivery(std::shared_ptr<BlePeer> peer, unsigned DeliveryHabits::*wait);
    ~InsideDelivery();
    InsideDelivery(const InsideDelivery&) = delete;
    InsideDelivery& operator=(const InsideDelivery&) = delete;

  private:
    DWORD m_wait = 0;
    WaitingCall m_call;
};

}  // namespace LinkDockService
