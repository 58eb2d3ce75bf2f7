// The Bluetooth route: connecting the keyboard, sending frames to it, and ending it all so that no
// notification finds its sink gone.
#include "routes/BlePath.h"

#include <memory>
#include <mutex>
#include <new>
#include <string>

#include "diagnostics/Log.h"
#include "platform/BoundedMemory.h"
#include "platform/NeverDestroyed.h"
#include "platform/platform.h"
#include "routes/KeyboardFrame.h"
#include "routes/NfcProxy.h"
#include "routes/RouteState.h"
#include "transfer/LockOrder.h"

using LinkDockService::BLEClient;

std::atomic<bool> g_isBtConnected{false};
std::atomic<std::uint64_t> g_btAddr{0};
std::atomic<BLEClient*> g_bleClient{nullptr};

namespace {

constexpr char kServiceUuid[] = "0000FE40-CC7A-482A-984A-7F2ED5B3E512";
constexpr char kWriteUuid[] = "0000FE41-CC7A-482A-984A-7F2ED5B3E512";
constexpr char kNotifyUuid[] = "0000FE42-CC7A-482A-984A-7F2ED5B3E512";

// Held for a whole connect or disconnect. Nothing that a notification or its listener may do takes
// it, so it can be held while the client waits for a running delivery to end.
platform::Mutex g_btLinkMutex{kBtLinkLock};

// The notification sink, its address, and sinks that the client would not let go of. Under
// g_btLinkMutex.
platform::NeverDestroyed<std::unique_ptr<BtDataNotify>> g_btDataNotify;
std::uint64_t g_btSinkAddress = 0;
platform::NeverDestroyed<std::vector<std::unique_ptr<BtDataNotify>>> g_btKeptSinks;

// Ends the deliveries to the sink and deletes it. When the client refuses, the sink is kept for
// good: it has no fields, and deleting it under a delivery would crash the host.
void ReleaseSink(BLEClient& client) {
    if (g_btDataNotify.value == nullptr) {
        return;
    }
    if (client.BleClientUnsubscribeNotify(g_btSinkAddress, kServiceUuid, kNotifyUuid) < 0) {
        g_btKeptSinks.value.push_back(std::move(g_btDataNotify.value));
    }
    g_btDataNotify.value.reset();
}

// Sends one frame as a single write.
bool SendFrame(BLEClient& client, const std::uint8_t* frame, std::size_t length) {
    std::vector<std::uint8_t> value(length);
    if (platform::memcpy_s(value.data(), value.size(), frame, length) != 0) {
        LogErrorFun("[NFC] BtWrite memcpy_s ERROR");
        return false;
    }
    if (client.BleClientWrite(g_btAddr, kServiceUuid, kWriteUuid, value) < 0) {
        LogErrorFun("[NFC] BleClientWrite ERROR");
        return false;
    }
    return true;
}

}  // namespace

bool NfcProxy::BtConnect(std::uint64_t address) {
    platform::Lock link(g_btLinkMutex);
    LogWarnFun("[NFC] BtConnect enter.");
    if (!g_btRandEvent.value.Create(true)) {
        LogErrorFun("[NFC] error creating g_RandEvent - % u",
                    static_cast<unsigned>(GetLastError()));
    }
    g_btAddr = address;
    BLEClient* const client = BLEClient::GetInstance();
    g_bleClient = client;
    if (client == nullptr) {
        return false;
    }
    if (client->BleClientConnect(address) < 0) {
        LogWarnFun("[NFC] BleClientConnect failed.");
        return false;
    }
    g_isBtConnected = true;
    LogWarnFun("[NFC] BtConnect succ.");
    ReleaseSink(*client);
    g_btDataNotify.value.reset(new (std::nothrow) BtDataNotify);
    if (g_btDataNotify.value == nullptr) {
        LogWithOrigin(LOG_MESSAGE_LEVEL_ERROR, "NfcProxy::BtConnect",
                      "[NFC] BtConnect alloc memery failed");
        return false;
    }
    g_btSinkAddress = address;
    LogWarnFun("[NFC] BtDataNotify init succ.");
    platform::KeepLoaded();  // the client has the sink's code to call from now on
    if (client->BleClientSubscribeNotify(address, kServiceUuid, kNotifyUuid,
                                         g_btDataNotify.value.get()) < 0) {
        LogWarnFun("[NFC] BleClientSubscribeNotify failed.");
        g_btDataNotify.value.reset();
        return false;
    }
    LogWarnFun("[NFC] BleClientSubscribeNotify succ.");
    return true;
}

bool NfcProxy::BtDisconnect(std::uint64_t address) {
    platform::Lock link(g_btLinkMutex);
    LogWarnFun("[NFC] BtDisconnect enter.");
    if (address != g_btAddr) {
        LogErrorFun("[NFC] btmac error!");
        return false;
    }
    if (!g_isBtConnected) {
        LogWarnFun("[NFC] BT is not connect!");
        return false;
    }
    g_isBtConnected = false;
    BLEClient* const client = g_bleClient;
    if (client == nullptr) {
        return false;
    }
    // ReleaseSink unsubscribes the sink's own address. That is another one, or none, when a later
    // connect failed half way.
    if (g_btDataNotify.value == nullptr || g_btSinkAddress != address) {
        client->BleClientUnsubscribeNotify(address, kServiceUuid, kNotifyUuid);
    }
    ReleaseSink(*client);
    if (client->BleClientDisConnect(address) < 0) {
        LogWarnFun("[NFC] BleClientDisConnect failed.");
    }
    g_btRandEvent.value.Close();
    return true;
}

bool NfcProxy::BtWrite(const std::uint8_t* data, std::int32_t length) {
    BLEClient* const client = g_bleClient;
    if (data == nullptr || length < 0 || length > kLargestKeyboardImage || client == nullptr) {
        return false;
    }
    const auto imageLength = static_cast<std::size_t>(length);
    const std::unique_ptr<std::uint8_t[]> frame(new (std::nothrow)
                                                    std::uint8_t[kFrameHeadSize + imageLength]);
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
    if (platform::memcpy_s(number, received.size(), received.data(), received.size()) != 0) {
        LogErrorFun("NFC ReadRandNumber memcpy_s fail");
        return false;
    }
    LogWarnFun("[NFC] BtReadRandomNum success!");
    return true;
}
