// The flows around a whole message: write, read, update.
//
// Each public flow holds m_staticDeviceMutex throughout, so a read cannot put the tag's old fields
// into memory between another flow's filling of the image and its writing. Each step on the tag
// holds g_contentMutex; message and image in memory are touched under g_memoryMutex alone.
#include <tagport/NfcManager.h>

#include <algorithm>
#include <string>
#include <utility>

#include "chip/NfcDeviceContext.h"
#include "diagnostics/Log.h"
#include "events/EventState.h"
#include "manager/ManagerLocks.h"
#include "manager/MessageLimits.h"
#include "manager/NumberWatch.h"
#include "manager/Peripheral.h"
#include "manager/Results.h"
#include "manager/TagAccess.h"
#include "platform/platform.h"
#include "routes/NfcProxy.h"
#include "routes/Route.h"
#include "routes/RouteState.h"
#include "tagimage/NfcData.h"
#include "transfer/TransferState.h"

namespace {

// The fields that travel between a message and the tag; the PC type does not.
struct MessageFields {
    std::string url;
    std::uint8_t mac[6] = {};
    std::uint8_t number[kNumberSize] = {};
    std::uint8_t model[4] = {};
};

bool HasStorableUrl(const MessageFields& fields) {
    return !fields.url.empty() && fields.url.size() <= kMaxUrlSize;
}

MessageFields FieldsOf(NdefMessage& message) {
    MessageFields fields;
    message.GetRandomNumber(fields.number);
    message.GetUrl(fields.url);
    message.GetModel(fields.model);
    message.GetMac(fields.mac);
    return fields;
}

void UseNewerNumber(const NumberWatch& watch, MessageFields& fields) {
    if (watch.given()) {
        std::copy(watch.given()->begin(), watch.given()->end(), fields.number);
    }
}

RandomNumber NumberOf(const MessageFields& fields) {
    RandomNumber number{};
    std::copy(std::begin(fields.number), std::end(fields.number), number.begin());
    return number;
}

// Copies the first bytes of a counted byte string into a field. False when it has too few.
template <std::size_t N>
bool CopyFirst(const std::string& bytes, std::uint8_t (&field)[N]) {
    if (bytes.size() < N) {
        return false;
    }
    std::copy_n(bytes.begin(), N, field);
    return true;
}

// Takes an image from the tag apart. False, with a log line, when it is malformed.
bool ParseFields(const std::string& content, MessageFields& fields) {
    NfcData nfcDataRead;
    if (!nfcDataRead.Init() || !nfcDataRead.Parse(content)) {
        LogErrorFun("nfcDataRead init fail");
        return false;
    }
    fields.url = nfcDataRead.GetUrl();
    if (!CopyFirst(nfcDataRead.GetMacAddr(), fields.mac) ||
        !CopyFirst(nfcDataRead.GetRandomNumber(), fields.number) ||
        !CopyFirst(nfcDataRead.GetModel(), fields.model)) {
        LogErrorFun("length error");
        return false;
    }
    return true;
}

// A chip that answers, answers with something other than zero at one of these places. The number
// thread looks at one place less.
bool LooksWritten(const RandomNumber& number) {
    return (number[0] | number[1] | number[2] | number[kNumberSize - 1]) != 0;
}

bool IsReadBeforeWrite() {
    return g_isI2cDriver && GetNfcDeviceContext().Traits().isReadBeforeWrite;
}

// Device start leaves the radio off on some chips; a written tag is to be seen by phones.
void EnableRadio() {
    NfcDeviceContext& context = GetNfcDeviceContext();
    NfcSpbCommon* const driver = context.spbDriverOps;
    if (driver == nullptr) {
        LogErrorFun("spbDriverOps == nullptr");
        return;
    }
    if (!driver->radioEnabled) {
        platform::Lock lock(context.mutex);
        driver->RadioEnable();
    }
}

}  // namespace

// By value: the host's pointer may be the manager's own, which this may replace.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
int NfcManager::WriteMessage(std::shared_ptr<NdefMessage> message) {
    const OperationScope scope;
    platform::Lock operation(m_staticDeviceMutex);
    // The end of another manager takes effect behind the whole write, radio included.
    const EventSlot::Keep transferEvent(g_ioEvent.value);
    LogWarnFun("NFC_WriteMessage with dynamic delay begin!");
    if (message == nullptr) {
        LogErrorFun("WriteMessage msg nullptr");
        return kFailure;
    }
    // Copied first: message and the manager's own are often one object, which the read overwrites.
    std::shared_ptr<NfcData> data;
    NumberWatch watch;
    MessageFields fields;
    std::shared_ptr<NdefMessage> own;
    {
        platform::Lock memory(g_memoryMutex);
        data = m_nfcData;
        watch.Begin(data.get());
        fields = FieldsOf(*message);
        own = m_ndefMessage;
    }
    if (!IsReadBeforeWrite()) {
        LogWarnFun("Nfc_ReadMessage not need");
    } else if (ReadIntoMessage(own) != kSuccess) {
        LogErrorFun("WriteMessage Read failed");
        platform::Lock memory(g_memoryMutex);
        m_ndefMessage = message;
    }
    {
        platform::Lock memory(g_memoryMutex);
        if (m_ndefMessage == nullptr) {
            LogErrorFun("WriteMessage m_ndefMessage nullptr");
            return kFailure;
        }
        UseNewerNumber(watch, fields);
        m_ndefMessage->SetRandomNumber(fields.number);
        NumberWatch::Announce(data.get(), NumberOf(fields));
        if (HasStorableUrl(fields)) {
            m_ndefMessage->SetUrl(fields.url);
        }
        m_ndefMessage->SetModel(fields.model);
        m_ndefMessage->SetMac(fields.mac);
    }
    int result = kSuccess;
    if (!UpdateTag()) {
        LogErrorFun("UpdateNfcData failed");
        result = kFailure;
    }
    if (Proxy() == nullptr || !NfcThreadCreate()) {
        return kFailure;
    }
    EnableRadio();
    return result;
}

int NfcManager::ReadMessage(const std::shared_ptr<NdefMessage>& target) {
    platform::Lock operation(m_staticDeviceMutex);
    return ReadIntoMessage(target);
}

// Under m_staticDeviceMutex.
int NfcManager::ReadIntoMessage(const std::shared_ptr<NdefMessage>& target) {
    std::shared_ptr<NfcData> data;
    std::shared_ptr<NfcProxy> proxy;
    NumberWatch watch;
    {
        platform::Lock memory(g_memoryMutex);
        data = m_nfcData;
        proxy = m_nfcProxy;
        watch.BeginWithKnown(data.get());
    }
    std::string content;
    if (proxy == nullptr || !ReadContent(*proxy, content)) {
        LogErrorFun("ReadMessage ReadNfcContent failed");
        return kFailure;
    }
    MessageFields fields;
    if (!ParseFields(content, fields)) {
        return kFailure;
    }
    if (target == nullptr || !HasStorableUrl(fields)) {
        return kFailure;
    }
    platform::Lock memory(g_memoryMutex);
    if (target == m_ndefMessage) {
        UseNewerNumber(watch, fields);
    }
    target->SetUrl(fields.url);
    target->SetMac(fields.mac);
    target->SetRandomNumber(fields.number);
    target->SetModel(fields.model);
    return SetContent() ? kSuccess : kFailure;
}

bool NfcManager::UpdateNfcData() {
    const OperationScope scope;
    platform::Lock operation(m_staticDeviceMutex);
    const EventSlot::Keep transferEvent(g_ioEvent.value);
    return UpdateTag();
}

// Under m_staticDeviceMutex.
bool NfcManager::UpdateTag() {
    std::shared_ptr<NfcData> data;
    std::shared_ptr<NfcProxy> proxy;
    {
        platform::Lock memory(g_memoryMutex);
        if (!SetContent()) {
            return false;
        }
        data = m_nfcData;
        proxy = m_nfcProxy;
    }
    if (proxy == nullptr || data == nullptr) {
        LogErrorFun("nullptr error");
        return false;
    }
    const bool written = TryThrice([&] {
        LogWarnFun("UpdateNfcData begin writing Nfc Chip");
        return WriteImage(*proxy, *data);
    });
    if (!written) {
        LogErrorFun("UpdateNfcData Write failed");
        return false;
    }
    LogWarnFun("UpdateNfcData Write Nfc Chip Successful");
    RandomNumber number{};
    for (int count = 0; count < kTagAttempts; ++count) {
        LogWarnFun("UpdateNfcData begin ReadRandNum %d", count);
        if (!ReadNumber(*proxy, number.data())) {
            LogErrorFun("ReadRandNum ReadNfc failed");
            LogErrorFun("ReadRandNum failed %d", count);
        } else if (LooksWritten(number)) {
            LogWarnFun("UpdateNfcData ReadRandNum Successful");
            proxy->SetLocalNum(number.data());
            LogWarnFun("UpdateNfcData success");
            return true;
        } else {
            LogErrorFun("ReadRandNum value is wrong %d", count);
        }
    }
    LogErrorFun("UpdateNfcData ReadRandNum failed");
    return false;
}

bool NfcManager::UpdateNfcContent() {
    const OperationScope scope;
    LogWarnFun("NfcManager::UpdateNfcContent()");
    std::shared_ptr<NfcData> data;
    std::shared_ptr<NfcProxy> proxy;
    {
        platform::Lock memory(g_memoryMutex);
        if (!SetContent()) {
            LogErrorFun("UpdateNfcContent SetContent fail");
            return false;
        }
        data = m_nfcData;
        proxy = m_nfcProxy;
    }
    if (proxy == nullptr || data == nullptr || !StartDeviceWithRetries(*proxy)) {
        return false;
    }
    LogWarnFun("NfcManager::InitNfcDevice done");
    std::string content;
    if (!ReadContent(*proxy, content)) {
        LogErrorFun("UpdateNfcContent ReadNfcContent failed");
        return false;
    }
    LogWarnFun("UpdateNfcContent ReadNfcContent done");
    if (content != BuildImage(*data)) {
        LogWarnFun("UpdateNfcContent: Writing NfcContent");
        if (!TryThrice([&] { return WriteImage(*proxy, *data); })) {
            LogErrorFun("UpdateNfcContent reWrite failed");
            return false;
        }
        LogWarnFun("UpdateNfcContent Write Nfc Chip Successful");
    }
    RandomNumber number{};
    if (!ReadNumber(*proxy, number.data())) {
        LogErrorFun("ReadRandNum ReadNfc failed");
        LogErrorFun("ReadRandNum failed");
        return false;
    }
    proxy->SetLocalNum(number.data());
    return true;
}
