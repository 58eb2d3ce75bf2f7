// Stand-in for the Bluetooth client: keeps the contract of the real one towards its host, and has
// a device of the back door's choice at the other end of the air. One thread delivers for the whole
// client. It is there while anything is subscribed.
//
// No lock is held while the device or a sink is called. A sink may call the client: an
// unsubscription or a disconnection out of a delivery waits for nothing, as the delivery that it
// comes from is the last one and there is no other.
#include "platform/LinkDockService.h"

#include <algorithm>
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

// What the delivery thread waits for: the notifications of one device, until told to stop.
struct Stream {
    std::shared_ptr<BlePeer> peer;
    StopToken stop{false};
};

// The handle of a delivery thread; closed by whoever lets go of it last.
struct ClientThread {
    HANDLE handle = nullptr;
    ~ClientThread() {
        if (handle != nullptr) {
            CloseHandle(handle);
        }
    }
};

// Everything that the client knows. Under `mutex`.
struct State {
    platform::Mutex mutex{kClientRank};
    platform::ConditionVariable changed;  // a delivery or the thread has ended
    std::shared_ptr<BlePeer> peer;
    std::vector<SubscriptionPtr> subscriptions;
    std::shared_ptr<Stream> stream;        // null while nothing is subscribed
    std::shared_ptr<ClientThread> thread;  // null when no delivery thread runs
    SubscriptionPtr delivering;            // the one whose sink is being called
    std::map<BleCall, std::vector<std::pair<unsigned, int>>> faults;  // calls to go, result
    bool noInstance = false;
    unsigned threads = 0;
};

// Never destroyed: the delivery thread may still wait when the process ends.
State& TheState() {
    static State& state = *new State;
    return state;
}

// True on the delivery thread.
thread_local bool t_delivers = false;

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

// The device for a call, or null with the result that the call is to give.
std::shared_ptr<BlePeer> PeerFor(BleCall call, int& result) {
    State& state = TheState();
    const platform::Lock lock(state.mutex);
    result = kFailed;
    return TakeFault(state, call, result) ? nullptr : state.peer;
}

// One notification to everyone who is subscribed to its device.
void Deliver(State& state, const Stream& stream, const std::vector<std::uint8_t>& value) {
    std::vector<SubscriptionPtr> receivers;
    {
        const platform::Lock lock(state.mutex);
        receivers = state.subscriptions;
    }
    for (const SubscriptionPtr& receiver : receivers) {
        {
            const platform::Lock lock(state.mutex);
            const auto& live = state.subscriptions;
            if (receiver->peer != stream.peer ||
                std::find(live.begin(), live.end(), receiver) == live.end()) {
                continue;
            }
            state.delivering = receiver;
        }
        receiver->sink->OnNotify(value);
        const platform::Lock lock(state.mutex);
        state.delivering.reset();
        state.changed.NotifyAll();
    }
}

DWORD WINAPI DeliveryThread(LPVOID /*argument*/) {
    State& state = TheState();
    t_delivers = true;
    std::vector<std::uint8_t> value;
    for (;;) {
        std::shared_ptr<Stream> stream;
        std::shared_ptr<ClientThread> self;  // let go of outside the lock
        {
            const platform::Lock lock(state.mutex);
            if (state.stream == nullptr) {
                self = std::move(state.thread);
                --state.threads;
                state.changed.NotifyAll();
                return 0;
            }
            stream = state.stream;
        }
        if (stream->peer->WaitNotification(stream->stop, value) && !stream->stop) {
            Deliver(state, *stream, value);
        }
    }
}

// Takes subscriptions out and waits, unless on the delivery thread, until none of their deliveries
// runs any more and, where nothing is left, until the thread has ended.
template <class Predicate>
std::vector<SubscriptionPtr> EndSubscriptions(Predicate which) {
    State& state = TheState();
    std::vector<SubscriptionPtr> ended;
    std::shared_ptr<Stream> stopped;
    std::shared_ptr<ClientThread> thread;
    {
        const platform::Lock lock(state.mutex);
        thread = state.thread;  // now: once told to stop, it lets go of itself
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
    if (t_delivers) {
        return ended;
    }
    {
        platform::Lock lock(state.mutex);
        // Looks at the running delivery even when there was nothing to take out: it may be the
        // last one of a subscription that its own sink has just ended.
        state.changed.Wait(lock, [&] {
            const bool delivers = state.delivering != nullptr && which(*state.delivering);
            return !delivers &&
                   (state.stream != nullptr || state.thread != thread || thread == nullptr);
        });
        if (state.thread == thread) {
            thread.reset();  // still at work for others
        }
    }
    if (thread != nullptr) {
        WaitForSingleObject(thread->handle, INFINITE);
    }
    return ended;
}

// Starts serving a subscription. False when no thread can be started.
bool BeginSubscription(const SubscriptionPtr& subscription) {
    State& state = TheState();
    std::shared_ptr<Stream> former;
    {
        const platform::Lock lock(state.mutex);
        if (state.thread == nullptr) {
            auto thread = std::make_shared<ClientThread>();
            thread->handle = CreateThread(nullptr, 0, DeliveryThread, nullptr, 0, nullptr);
            if (thread->handle == nullptr) {
                return false;
            }
            state.thread = std::move(thread);
            ++state.threads;
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
    // Whatever the result: the caller is about to destroy its sink.
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
    return state.threads;
}

}  // namespace LinkDockService
