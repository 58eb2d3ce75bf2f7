// Stand-in for the Bluetooth client. It keeps the contract of the real client; the back door
// chooses the device that it talks to. Delivery threads, by default one, serve all subscriptions
// and run while there are any.
//
// No lock is held while the device or a sink is called, so a sink may call the client.
#include "platform/LinkDockService.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <mutex>
#include <utility>

#include "platform/LinkDockBackDoor.h"
#include "platform/platform.h"

namespace LinkDockService {

namespace {

constexpr int kFailed = -1;
constexpr std::size_t kMaxValue = 890;

// Innermost of all: a host may hold any of its own locks when it calls the client.
constexpr platform::LockRank kClientRank = {10'000, "LinkDockService client"};

struct Subscription {
    std::uint64_t address;
    std::string service;
    std::string characteristic;
    BLEClient::INotification* sink;
    std::shared_ptr<BlePeer> peer;

    bool Is(std::uint64_t otherAddress, const std::string& otherService,
            const std::string& otherCharacteristic) const {
        return address == otherAddress && service == otherService &&
               characteristic == otherCharacteristic;
    }
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
    const void* thread;          // the address of the thread's t_self
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

// Never destroyed: a delivery thread may still wait when the process ends.
State& TheState() {
    static State& state = *new State;
    return state;
}

// Its address identifies the thread.
thread_local char t_self = 0;

// Counts a call. True when it is to fail, with the result.
bool TakeFault(State& state, BleCall call, int& result) {
    const auto found = state.faults.find(call);
    if (found == state.faults.end()) {
        return false;
    }
    bool fails = false;
    auto& entries = found->second;
    for (auto entry = entries.begin(); entry != entries.end();) {
        if (--entry->first == 0) {
            fails = true;
            result = entry->second;
            entry = entries.erase(entry);
        } else {
            ++entry;
        }
    }
    return fails;
}

bool DeliversAfterRefusal() {
    State& state = TheState();
    const platform::Lock lock(state.mutex);
    return state.habits.afterRefusedUnsubscribe;
}

// The device for a call, or null with the result that the call is to give.
std::shared_ptr<BlePeer> PeerFor(BleCall call, int& result) {
    State& state = TheState();
    const platform::Lock lock(state.mutex);
    result = kFailed;
    return TakeFault(state, call, result) ? nullptr : state.peer;
}

template <class Pointer, class Raw>
void Erase(std::vector<Pointer>& from, Raw* one) {
    from.erase(std::find_if(from.begin(), from.end(),
                            [&](const Pointer& other) { return &*other == one; }));
}

// Calls the sink of every subscription to the device.
void Deliver(const std::shared_ptr<BlePeer>& peer, const std::vector<std::uint8_t>& value) {
    State& state = TheState();
    std::vector<SubscriptionPtr> receivers;
    {
        const platform::Lock lock(state.mutex);
        receivers = state.subscriptions;
    }
    for (const SubscriptionPtr& receiver : receivers) {
        Delivery delivery{receiver, &t_self};
        {
            const platform::Lock lock(state.mutex);
            const auto& live = state.subscriptions;
            if (receiver->peer != peer ||
                std::find(live.begin(), live.end(), receiver) == live.end()) {
                continue;
            }
            state.running.push_back(&delivery);
        }
        receiver->sink->OnNotify(value);
        const platform::Lock lock(state.mutex);
        Erase(state.running, &delivery);
        state.changed.NotifyAll();
    }
}

// Gives a notification to a call that waits for one of this device. False when none does.
bool HandOver(const std::shared_ptr<BlePeer>& peer, std::vector<std::uint8_t>& value) {
    State& state = TheState();
    const platform::Lock lock(state.mutex);
    for (WaitingCall* const call : state.waiting) {
        if (call->peer == peer && !call->filled) {
            call->filled = true;
            call->value = std::move(value);
            SetEvent(call->received.handle);
            return true;
        }
    }
    return false;
}

DWORD WINAPI DeliveryThread(LPVOID argument) {
    State& state = TheState();
    std::vector<std::uint8_t> value;
    for (;;) {
        std::shared_ptr<Stream> stream;
        {
            const platform::Lock lock(state.mutex);
            stream = state.stream;
            if (stream == nullptr) {
                Erase(state.threads, static_cast<OwnedHandle*>(argument));
                state.changed.NotifyAll();
                return 0;
            }
        }
        if (stream->peer->WaitNotification(stream->stop, value) && !stream->stop &&
            !HandOver(stream->peer, value)) {
            Deliver(stream->peer, value);
        }
    }
}

// Makes a call of the client take the next notification, if one comes in time, and deliver it
// before the call returns. Constructed before the call reaches the device.
class InsideDelivery {
  public:
    InsideDelivery(std::shared_ptr<BlePeer> peer, unsigned DeliveryHabits::*wait) {
        State& state = TheState();
        const platform::Lock lock(state.mutex);
        m_wait = state.habits.*wait;
        if (m_wait == 0) {
            return;
        }
        m_call.peer = std::move(peer);
        m_call.received.handle = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        state.waiting.push_back(&m_call);
    }

    ~InsideDelivery() {
        if (m_wait == 0) {
            return;
        }
        State& state = TheState();
        WaitForSingleObject(m_call.received.handle, m_wait);
        {
            const platform::Lock lock(state.mutex);
            Erase(state.waiting, &m_call);
        }
        if (m_call.filled) {
            Deliver(m_call.peer, m_call.value);
        }
    }

    InsideDelivery(const InsideDelivery&) = delete;
    InsideDelivery& operator=(const InsideDelivery&) = delete;

  private:
    DWORD m_wait = 0;
    WaitingCall m_call;
};

// Waits until no delivery of these subscriptions runs, and until the threads that have nothing left
// to serve have ended. A call that comes out of a delivery waits only for deliveries of other
// threads, and of these only for the ones that do not wait here themselves.
template <class Predicate>
void WaitForDeliveries(Predicate which, const std::vector<ThreadPtr>& threads) {
    State& state = TheState();
    std::vector<ThreadPtr> ending;
    {
        platform::Lock lock(state.mutex);
        std::vector<Delivery*> own;
        for (Delivery* const one : state.running) {
            if (one->thread == &t_self) {
                one->unsubscribing = true;
                own.push_back(one);
            }
        }
        state.changed.NotifyAll();
        const auto runs = [&](const ThreadPtr& thread) {
            return std::find(state.threads.begin(), state.threads.end(), thread) !=
                   state.threads.end();
        };
        // Deliveries count also when no subscription was removed: one may be the last delivery of a
        // subscription that its own sink has just ended.
        state.changed.Wait(lock, [&] {
            const bool delivers =
                std::any_of(state.running.begin(), state.running.end(), [&](const Delivery* one) {
                    return which(*one->subscription) && (own.empty() || !one->unsubscribing);
                });
            return !delivers && (!own.empty() || state.stream != nullptr ||
                                 std::none_of(threads.begin(), threads.end(), runs));
        });
        for (Delivery* const one : own) {
            one->unsubscribing = false;
        }
        if (own.empty()) {
            std::remove_copy_if(threads.begin(), threads.end(), std::back_inserter(ending), runs);
        }
    }
    for (const ThreadPtr& thread : ending) {
        WaitForSingleObject(thread->handle, INFINITE);
    }
}

// Removes subscriptions and waits for their deliveries.
template <class Predicate>
std::vector<SubscriptionPtr> EndSubscriptions(Predicate which) {
    State& state = TheState();
    std::vector<SubscriptionPtr> ended;
    std::shared_ptr<Stream> stopped;
    std::vector<ThreadPtr> threads;
    {
        const platform::Lock lock(state.mutex);
        threads = state.threads;  // before they stop: a thread that ends removes itself
        auto& live = state.subscriptions;
        const auto kept = std::stable_partition(
            live.begin(), live.end(), [&](const SubscriptionPtr& one) { return !which(*one); });
        ended.assign(kept, live.end());
        live.erase(kept, live.end());
        if (live.empty() && state.stream != nullptr) {
            stopped = std::move(state.stream);
            stopped->stop = true;
        }
    }
    if (stopped != nullptr) {
        stopped->peer->Wake();
    }
    WaitForDeliveries(which, threads);
    return ended;
}

// Starts serving a subscription. False when there is no thread and none can be started.
bool BeginSubscription(const SubscriptionPtr& subscription) {
    State& state = TheState();
    std::shared_ptr<Stream> former;
    {
        const platform::Lock lock(state.mutex);
        while (state.threads.size() < state.habits.threads) {
            auto thread = std::make_shared<OwnedHandle>();
            thread->handle = CreateThread(nullptr, 0, DeliveryThread, thread.get(), 0, nullptr);
            if (thread->handle == nullptr) {
                break;
            }
            state.threads.push_back(std::move(thread));
        }
        if (state.threads.empty()) {
            return false;
        }
        state.subscriptions.push_back(subscription);
        if (state.stream == nullptr || state.stream->peer != subscription->peer) {
            former = std::move(state.stream);
            state.stream = std::make_shared<Stream>();
            state.stream->peer = subscription->peer;
        }
        if (former != nullptr) {
            former->stop = true;
        }
        state.changed.NotifyAll();
    }
    if (former != nullptr) {
        former->peer->Wake();
    }
    return true;
}

}  // namespace

void BLEClient::INotification::OnConnectionChange(int /*state*/) {}
void BLEClient::INotification::OnNotify(const std::vector<std::uint8_t>& /*value*/) {}
BLEClient::INotification::~INotification() = default;

BlePeer::~BlePeer() = default;

BLEClient* BLEClient::GetInstance() {
    static BLEClient client;  // has no state of its own
    State& state = TheState();
    const platform::Lock lock(state.mutex);
    return state.noInstance ? nullptr : &client;
}

int BLEClient::BleClientConnect(std::uint64_t address) {
    int result = kFailed;
    const auto peer = PeerFor(BleCall::kConnect, result);
    return peer == nullptr ? result : peer->Connect(address);
}

int BLEClient::BleClientDisConnect(std::uint64_t address) {
    int result = kFailed;
    const auto peer = PeerFor(BleCall::kDisconnect, result);
    if (peer == nullptr) {
        return result;
    }
    EndSubscriptions([&](const Subscription& one) { return one.address == address; });
    return peer->Disconnect(address);
}

int BLEClient::BleClientSubscribeNotify(std::uint64_t address, const std::string& service,
                                        const std::string& characteristic, INotification* sink) {
    int result = kFailed;
    const auto peer = PeerFor(BleCall::kSubscribe, result);
    if (peer == nullptr || sink == nullptr) {
        return result;
    }
    result = peer->Subscribe(address, service, characteristic, true);
    if (result < 0) {
        return result;
    }
    // A second subscription replaces the first: its sink gets nothing more once this returns.
    EndSubscriptions(
        [&](const Subscription& one) { return one.Is(address, service, characteristic); });
    const InsideDelivery inside(peer, &DeliveryHabits::insideSubscribeMs);
    const auto subscription =
        std::make_shared<Subscription>(Subscription{address, service, characteristic, sink, peer});
    if (!BeginSubscription(subscription)) {
        peer->Subscribe(address, service, characteristic, false);
        return kFailed;
    }
    return result;
}

int BLEClient::BleClientUnsubscribeNotify(std::uint64_t address, const std::string& service,
                                          const std::string& characteristic) {
    int result = kFailed;
    const auto peer = PeerFor(BleCall::kUnsubscribe, result);
    if (peer == nullptr && DeliversAfterRefusal()) {
        return result;
    }
    const auto ended = EndSubscriptions(
        [&](const Subscription& one) { return one.Is(address, service, characteristic); });
    if (peer == nullptr || ended.empty()) {
        return result;
    }
    return ended.front()->peer->Subscribe(address, service, characteristic, false);
}

int BLEClient::BleClientWrite(std::uint64_t address, const std::string& service,
                              const std::string& characteristic,
                              const std::vector<std::uint8_t>& value) {
    int result = kFailed;
    const auto peer = PeerFor(BleCall::kWrite, result);
    if (peer == nullptr || value.size() > kMaxValue) {
        return result;
    }
    const InsideDelivery inside(peer, &DeliveryHabits::insideWriteMs);
    return peer->Write(address, service, characteristic, value);
}

void SetPeer(std::shared_ptr<BlePeer> peer) {
    State& state = TheState();
    const platform::Lock lock(state.mutex);
    state.peer.swap(peer);
}

void FailCall(BleCall call, unsigned nth, int result) {
    if (nth == 0) {
        return;
    }
    State& state = TheState();
    const platform::Lock lock(state.mutex);
    state.faults[call].emplace_back(nth, result);
}

void SetDeliveryHabits(const DeliveryHabits& habits) {
    State& state = TheState();
    const platform::Lock lock(state.mutex);
    state.habits = habits;
}

void SetNoInstance(bool none) {
    State& state = TheState();
    const platform::Lock lock(state.mutex);
    state.noInstance = none;
}

void ClearFaults() {
    State& state = TheState();
    const platform::Lock lock(state.mutex);
    state.faults.clear();
    state.noInstance = false;
}

unsigned DeliveryThreads() {
    State& state = TheState();
    const platform::Lock lock(state.mutex);
    return static_cast<unsigned>(state.threads.size());
}

}  // namespace LinkDockService
