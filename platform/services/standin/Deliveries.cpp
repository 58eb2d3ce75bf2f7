// Threads that wait for notifications and call the sinks of the stand-in Bluetooth client. No lock
// is held while the device or a sink is called, so a sink may call the client.
#include "platform/services/standin/Deliveries.h"

#include <algorithm>
#include <iterator>

namespace LinkDockService {

namespace {

template <class Pointer, class Raw>
void Erase(std::vector<Pointer>& from, Raw* one) {
    from.erase(std::find_if(from.begin(), from.end(),
                            [&](const Pointer& other) { return &*other == one; }));
}

// Calls the sink of every subscription to the device.
void Deliver(const std::shared_ptr<BlePeer>& peer, const std::vector<std::uint8_t>& value) {
    const std::vector<SubscriptionPtr> receivers = LockedState()->subscriptions;
    for (const SubscriptionPtr& receiver : receivers) {
        Delivery delivery{receiver, std::this_thread::get_id()};
        {
            const LockedState state;
            const auto& live = state->subscriptions;
            if (receiver->peer != peer ||
                std::find(live.begin(), live.end(), receiver) == live.end()) {
                continue;
            }
            state->running.push_back(&delivery);
        }
        receiver->sink->OnNotify(value);
        const LockedState state;
        Erase(state->running, &delivery);
        state->changed.NotifyAll();
    }
}

// Hands a notification to a call that waits for one of this device. False when none does.
bool HandOver(const std::shared_ptr<BlePeer>& peer, std::vector<std::uint8_t>& value) {
    const LockedState state;
    for (WaitingCall* const call : state->waiting) {
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
    std::vector<std::uint8_t> value;
    for (;;) {
        std::shared_ptr<Stream> stream;
        {
            const LockedState state;
            stream = state->stream;
            if (stream == nullptr) {
                Erase(state->threads, static_cast<OwnedHandle*>(argument));
                state->changed.NotifyAll();
                return 0;
            }
        }
        if (stream->peer->WaitNotification(stream->stop, value) && !stream->stop &&
            !HandOver(stream->peer, value)) {
            Deliver(stream->peer, value);
        }
    }
}

// The waits of EndSubscriptions.
void WaitForDeliveries(const Which& which, const std::vector<ThreadPtr>& threads) {
    std::vector<ThreadPtr> ending;
    {
        LockedState state;
        std::vector<Delivery*> own;
        for (Delivery* const one : state->running) {
            if (one->thread == std::this_thread::get_id()) {
                one->unsubscribing = true;
                own.push_back(one);
            }
        }
        state->changed.NotifyAll();
        const auto runs = [&](const ThreadPtr& thread) {
            return std::find(state->threads.begin(), state->threads.end(), thread) !=
                   state->threads.end();
        };
        // Deliveries count also when no subscription was removed: one may be the last delivery of a
        // subscription that its own sink has just ended.
        state->changed.Wait(state.lock(), [&] {
            const bool delivers =
                std::any_of(state->running.begin(), state->running.end(), [&](const Delivery* one) {
                    return which(*one->subscription) && (own.empty() || !one->unsubscribing);
                });
            return !delivers && (!own.empty() || state->stream != nullptr ||
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

}  // namespace

// Never destroyed: a delivery thread may still wait when the process ends.
State& TheState() {
    static State& state = *new State;
    return state;
}

InsideDelivery::InsideDelivery(std::shared_ptr<BlePeer> peer, unsigned DeliveryHabits::*wait) {
    const LockedState state;
    m_wait = state->habits.*wait;
    if (m_wait == 0) {
        return;
    }
    m_call.peer = std::move(peer);
    m_call.received.handle = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    state->waiting.push_back(&m_call);
}

InsideDelivery::~InsideDelivery() {
    if (m_wait == 0) {
        return;
    }
    WaitForSingleObject(m_call.received.handle, m_wait);
    Erase(LockedState()->waiting, &m_call);
    if (m_call.filled) {
        Deliver(m_call.peer, m_call.value);
    }
}

std::vector<SubscriptionPtr> EndSubscriptions(const Which& which) {
    std::vector<SubscriptionPtr> ended;
    std::shared_ptr<Stream> stopped;
    std::vector<ThreadPtr> threads;
    {
        const LockedState state;
        threads = state->threads;  // before they stop: a thread that ends removes itself
        auto& live = state->subscriptions;
        const auto kept = std::stable_partition(
            live.begin(), live.end(), [&](const SubscriptionPtr& one) { return !which(*one); });
        ended.assign(kept, live.end());
        live.erase(kept, live.end());
        if (live.empty() && state->stream != nullptr) {
            stopped = std::move(state->stream);
            stopped->stop = true;
        }
    }
    if (stopped != nullptr) {
        stopped->peer->Wake();
    }
    WaitForDeliveries(which, threads);
    return ended;
}

bool BeginSubscription(const SubscriptionPtr& subscription) {
    std::shared_ptr<Stream> former;
    {
        const LockedState state;
        while (state->threads.size() < state->habits.threads) {
            auto thread = std::make_shared<OwnedHandle>();
            thread->handle = CreateThread(nullptr, 0, DeliveryThread, thread.get(), 0, nullptr);
            if (thread->handle == nullptr) {
                break;
            }
            state->threads.push_back(std::move(thread));
        }
        if (state->threads.empty()) {
            return false;
        }
        state->subscriptions.push_back(subscription);
        if (state->stream == nullptr || state->stream->peer != subscription->peer) {
            former = std::move(state->stream);
            state->stream = std::make_shared<Stream>();
            state->stream->peer = subscription->peer;
        }
        if (former != nullptr) {
            former->stop = true;
        }
        state->changed.NotifyAll();
    }
    if (former != nullptr) {
        former->peer->Wake();
    }
    return true;
}

}  // namespace LinkDockService
