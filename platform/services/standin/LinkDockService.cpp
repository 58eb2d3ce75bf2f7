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

// Counts a call. The device for it, or null with the result that the call is to return.
std::shared_ptr<BlePeer> PeerFor(BleCall call, int& result) {
    const LockedState state;
    bool fails = false;
    for (auto& [left, fault] : state->faults[call]) {
        if (left > 0 && --left == 0) {
            fails = true;
            result = fault;
        }
    }
    return fails ? nullptr : state->peer;
}

}  // namespace

BlePeer::~BlePeer() = default;

BLEClient* BLEClient::GetInstance() {
    static BLEClient client;  // has no state of its own
    return LockedState()->noInstance ? nullptr : &client;
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
    EndSubscriptions([&](const Subscription& one) { return one.to.address == address; });
    return peer->Disconnect(address);
}

int BLEClient::BleClientSubscribeNotify(std::uint64_t address, const std::string& service,
                                        const std::string& characteristic, INotification* sink) {
    const Characteristic to{address, service, characteristic};
    int result = kFailed;
    const auto peer = PeerFor(BleCall::kSubscribe, result);
    if (peer == nullptr || sink == nullptr) {
        return result;
    }
    result = peer->Subscribe(to, true);
    if (result < 0) {
        return result;
    }
    // A second subscription replaces the first: its sink gets nothing more once this returns.
    EndSubscriptions([&](const Subscription& one) { return one.to == to; });
    const InsideDelivery inside(peer, &DeliveryHabits::insideSubscribeMs);
    if (!BeginSubscription(std::make_shared<Subscription>(Subscription{to, sink, peer}))) {
        peer->Subscribe(to, false);
        return kFailed;
    }
    return result;
}

int BLEClient::BleClientUnsubscribeNotify(std::uint64_t address, const std::string& service,
                                          const std::string& characteristic) {
    const Characteristic to{address, service, characteristic};
    int result = kFailed;
    const auto peer = PeerFor(BleCall::kUnsubscribe, result);
    if (peer == nullptr && LockedState()->habits.afterRefusedUnsubscribe) {
        return result;
    }
    const auto ended = EndSubscriptions([&](const Subscription& one) { return one.to == to; });
    return peer == nullptr || ended.empty() ? result : ended.front()->peer->Subscribe(to, false);
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
    return peer->Write({address, service, characteristic}, value);
}

void SetPeer(std::shared_ptr<BlePeer> peer) {
    LockedState()->peer.swap(peer);
}

void FailCall(BleCall call, unsigned nth, int result) {
    if (nth != 0) {
        LockedState()->faults[call].emplace_back(nth, result);
    }
}

void SetDeliveryHabits(const DeliveryHabits& habits) {
    LockedState()->habits = habits;
}

void SetNoInstance(bool none) {
    LockedState()->noInstance = none;
}

void ClearFaults() {
    const LockedState state;
    state->faults.clear();
    state->noInstance = false;
}

unsigned DeliveryThreads() {
    return static_cast<unsigned>(LockedState()->threads.size());
}

}  // namespace LinkDockService
