// The Bluetooth route: connecting the keyboard, sending frames to it, and ending it all so that no
// notification finds its sink gone.
#include <atomic>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "diagnostics/Log.h"
#include "platform/BoundedMemory.h"
#include "platform/NeverDestroyed.h"
#include "platform/platform.h"
#include "routes/BleDelivery.h"
#include "routes/BtDataNotify.h"
#include "routes/EventErrors.h"
#include "routes/KeyboardFrame.h"
#include "routes/Keyboards.h"
#include "routes/NfcProxy.h"
#include "routes/Route.h"
#include "transfer/Buffer.h"
#include "transfer/LockOrder.h"

using LinkDockService::BLEClient;

namespace {

// The keyboard is connected: images and number reads go there too. Written by connect and
// disconnect, read by every operation.
std::atomic<bool> g_isBtConnected{false};

// The address that the host connected last, and the client, null before the first connect and not
// owned. Written by connect under the content lock, read by frames and disconnect.
std::atomic<std::uint64_t> g_btAddr{0};
std::atomic<BLEClient*> g_bleClient{nullptr};

constexpr char kServiceUuid[] = "0000FE40-CC7A-482A-984A-7F2ED5B3E512";
constexpr char kWriteUuid[] = "0000FE41-CC7A-482A-984A-7F2ED5B3E512";
constexpr char kNotifyUuid[] = "0000FE42-CC7A-482A-984A-7F2ED5B3E512";

// Calls of the client are marked: what it notifies inside one is queued.
template <class Call>
bool CallClient(Call call) {
    const BleDelivery::ClientCall mark;
    return call() >= 0;
}

// The sink of the keyboard's notifications, null when there is none. Under Link::mutex.
platform::NeverDestroyed<std::unique_ptr<BtDataNotify>> g_btDataNotify;

// What belongs to the link besides.
struct Link {
    // Held for a whole connect or disconnect, also while the client waits for a delivery to end: a
    // notification and its listener must not need it. They may need the content lock, so that one
    // is not held meanwhile.
    platform::Mutex mutex{kBtLinkLock};
    std::uint64_t sinkAddress = 0;  // that the sink is subscribed for
    // Sinks that the client has refused to unsubscribe. They are detached, and kept for good:
    // deleting one under a delivery would crash the host.
    std::vector<std::unique_ptr<BtDataNotify>> keptSinks;
};

Link& TheLink() {
    static platform::NeverDestroyed<Link> link;
    return link.value;
}

bool Unsubscribe(BLEClient& client, std::uint64_t address) {
    return CallClient(
        [&] { return client.BleClientUnsubscribeNotify(address, kServiceUuid, kNotifyUuid); });
}

// Deletes the sink, which is detached. `isFree`: the client has unsubscribed it.
void DropSink(Link& link, bool isFree) {
    if (g_btDataNotify.value != nullptr && !isFree) {
        link.keptSinks.push_back(std::move(g_btDataNotify.value));
    }
    g_btDataNotify.value.reset();
}

// Sets event, address and client of the frames to come, and returns the client. Under the content
// lock, so that a frame in flight keeps its address, and a read its event and its answer.
BLEClient* ChooseKeyboard(std::uint64_t address) {
    const platform::Lock content(ContentLock::m_mutex);
    if (!g_btRandEvent.value.Create(true)) {
        LogNoBtNumberEvent(GetLastError());
    }
    g_btAddr = address;
    g_bleClient = BLEClient::GetInstance();
    return g_bleClient;
}

// Sends one frame as a single write.
bool SendFrame(BLEClient& client, const std::uint8_t* frame, std::size_t length) {
    std::vector<std::uint8_t> value(length);
    if (platform::memcpy_s(value.data(), value.size(), frame, length) != 0) {
        LogErrorFun("[NFC] BtWrite memcpy_s ERROR");
        return false;
    }
    if (!CallClient(
            [&] { return client.BleClientWrite(g_btAddr, kServiceUuid, kWriteUuid, value); })) {
        LogErrorFun("[NFC] BleClientWrite ERROR");
        return false;
    }
    return true;
}

}  // namespace

bool NfcProxy::BtConnect(std::uint64_t address) {
    Link& link = TheLink();
    const platform::Lock lock(link.mutex);
    LogWarnFun("[NFC] BtConnect enter.");
    BLEClient* const client = ChooseKeyboard(address);
    if (client == nullptr) {
        return false;
    }
    if (!CallClient([&] { return client->BleClientConnect(address); })) {
        LogWarnFun("[NFC] BleClientConnect failed.");
        return false;
    }
    g_isBtConnected = true;
    LogWarnFun("[NFC] BtConnect succ.");
    if (g_btDataNotify.value != nullptr) {
        const bool isFree = Unsubscribe(*client, link.sinkAddress);
        BleDelivery::Get().DetachSink();
        DropSink(link, isFree);
    }
    g_btDataNotify.value.reset(new (std::nothrow) BtDataNotify);
    if (g_btDataNotify.value == nullptr) {
        LogWithOrigin(LOG_MESSAGE_LEVEL_ERROR, "NfcProxy::BtConnect",
                      "[NFC] BtConnect alloc memery failed");
        return false;
    }
    link.sinkAddress = address;
    BleDelivery::Get().SetSink(g_btDataNotify.value.get());
    LogWarnFun("[NFC] BtDataNotify init succ.");
    platform::KeepLoaded();  // the client has the sink's code to call from now on
    const bool isSubscribed = CallClient([&] {
        return client->BleClientSubscribeNotify(address, kServiceUuid, kNotifyUuid,
                                                g_btDataNotify.value.get());
    });
    if (!isSubscribed) {
        LogWarnFun("[NFC] BleClientSubscribeNotify failed.");
        BleDelivery::Get().DetachSink();
        DropSink(link, true);
        return false;
    }
    LogWarnFun("[NFC] BleClientSubscribeNotify succ.");
    return true;
}

bool NfcProxy::BtDisconnect(std::uint64_t address) {
    Link& link = TheLink();
    const platform::Lock lock(link.mutex);
    LogWarnFun("[NFC] BtDisconnect enter.");
    if (address != g_btAddr) {
        LogErrorFun("[NFC] btmac error!");
        return false;
    }
    if (!g_isBtConnected) {
        LogWarnFun("[NFC] BT is not connect!");
        return false;
    }
    {
        // After a frame in flight and its answer.
        const platform::Lock content(ContentLock::m_mutex);
        g_isBtConnected = false;
    }
    BLEClient* const client = g_bleClient;
    if (client == nullptr) {
        // A connect that found no client: the sink of the one before is still subscribed.
        BleDelivery::Get().DetachSink();
        DropSink(link, false);
        return false;
    }
    bool isFree = Unsubscribe(*client, address);
    if (g_btDataNotify.value != nullptr && link.sinkAddress != address) {
        // A later connect failed half way: the sink is still subscribed for the address before.
        isFree = Unsubscribe(*client, link.sinkAddress);
    }
    BleDelivery::Get().DetachSink();
    if (!CallClient([&] { return client->BleClientDisConnect(address); })) {
        LogWarnFun("[NFC] BleClientDisConnect failed.");
    }
    g_btRandEvent.value.Close();
    DropSink(link, isFree);
    return true;
}

bool NfcProxy::BtWrite(const std::uint8_t* data, std::int32_t length) {
    BLEClient* const client = g_bleClient;
    if (data == nullptr || length < 0 || length > kLargestKeyboardImage || client == nullptr) {
        return false;
    }
    const auto imageLength = static_cast<std::size_t>(length);
    const Buffer frame = AllocateBuffer(kFrameHeadSize + imageLength);
    if (frame == nullptr) {
        LogErrorFun("[NFC] btWrite: malloc nfcData fail");
        return false;
    }
    PutFrameHead(frame.get(), kDirectionWrite);
    if (platform::memcpy_s(frame.get() + kFrameHeadSize, imageLength, data, imageLength) != 0) {
        LogErrorFun("[NFC] btWrite memcpy_s fail2");
        return false;
    }
    if (!SendFrame(*client, frame.get(), kFrameHeadSize + imageLength)) {
        return false;
    }
    LogWarnFun("[NFC] BtWrite success!");
    return true;
}

bool NfcProxy::BtReadRandomNum(std::uint16_t regAddr, std::uint8_t* number) {
    BLEClient* const client = g_bleClient;
    if (client == nullptr) {
        return false;
    }
    const std::unique_ptr<NumberRequest> request(new (std::nothrow) NumberRequest);
    if (request == nullptr) {
        LogErrorFun("[NFC] ReadRandNumber malloc writeData fail");
        return false;
    }
    FillNumberRequest(*request, regAddr);
    if (!SendFrame(*client, request->data(), request->size())) {
        return false;
    }
    LogWarnFun("[NFC] BtReadRandomNum WRITE success!");
    const EventSlot::Lease answered = g_btRandEvent.value.Get();
    if (WaitForSingleObject(HandleOf(answered), kAnswerTimeoutMs) != WAIT_OBJECT_0) {
        LogErrorFun("NFC ReadRandNumber fail,%u", static_cast<unsigned>(GetLastError()));
        return false;
    }
    ResetEvent(HandleOf(answered));
    const RandomNumber received = g_btRandNumber.value.Get();
    if (!platform::CopyField<kNumberSize>(number, received.data())) {
        LogErrorFun("NFC ReadRandNumber memcpy_s fail");
        return false;
    }
    LogWarnFun("[NFC] BtReadRandomNum success!");
    return true;
}

namespace {

class BleRoute final : public Route {
  public:
    bool IsActive() const override { return g_isBtConnected; }
    bool WriteImage(const std::uint8_t* image, std::int32_t length) override
        TAGPORT_REQUIRES(ContentLock::m_mutex) {
        return NfcProxy::BtWrite(image, length);
    }
    bool ReadNumber(std::uint16_t regAddr, std::uint8_t* number) override
        TAGPORT_REQUIRES(ContentLock::m_mutex) {
        if (!NfcProxy::BtReadRandomNum(regAddr, number)) {
            LogWarnFun("[NFC_log] BtReadRandomNum fail ");
        }
        return true;  // a keyboard that does not answer does not fail the read
    }
    void AfterOperation() override { BleDelivery::Get().DeliverPending(); }
};

}  // namespace

Route& BleRouteInstance() {
    static platform::NeverDestroyed<BleRoute> route;
    return route.value;
}
