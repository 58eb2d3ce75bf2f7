// Stand-in for the Bluetooth client: its calls and its back door. It keeps the contract of the real
// client; the back door chooses the device that it talks to.
#include "platform/services/LinkDockService.h"

#include "platform/platform.h"
#include "platform/services/standin/ClientBackDoor.h"
#include "platform/services/standin/Deliveries.h"

namespace LinkDockService {

namespace {

constexpr int kFailed = -1;
constexpr std::size_t kMaxValue = 890;

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

// The device for a call, or null with the result that the call is to return.
std::shared_ptr<BlePeer> PeerFor(BleCall call, int& result) {
    State& state = TheState();
    const platform::Lock lock(state.mutex);
    result = kFailed;
    return TakeFault(state, call, result) ? nullptr : state.peer;
}

}  // namespace

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
