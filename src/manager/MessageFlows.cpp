// The flows around a whole message: write, read, update.
//
// Each flow holds m_staticDeviceMutex throughout, so a read cannot put the tag's old fields into
// memory between another flow's filling of the image and its writing. Each step on the tag holds
// the content lock; message and image in memory are touched under the memory lock, and nothing is
// logged there.
#include <tagport/NfcManager.h>

#include <algorithm>
#include <string>
#include <utility>

#include "diagnostics/Log.h"
#include "manager/Limits.h"
#include "manager/ManagedImage.h"
#include "manager/ManagerLocks.h"
#include "manager/TagSteps.h"
#include "platform/platform.h"
#include "routes/NfcProxy.h"
#include "routes/RouteTable.h"
#include "tagimage/NfcData.h"
#include "transfer/WaitForCommand.h"

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

void UseNewerNumber(const ManagedImage* image, ManagedImage::Generation generation,
                    MessageFields& fields) TAGPORT_REQUIRES(ManagedImage::m_memoryMutex) {
    const RandomNumber* const newer = image != nullptr ? image->NewerThan(generation) : nullptr;
    if (newer != nullptr) {
        std::copy(newer->begin(), newer->end(), fields.number);
    }
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

// Parses an image from the tag. False, with a log line, when it is malformed.
bool ParseFields(const std::string& onTag, MessageFields& fields) {
    NfcData nfcDataRead;
    if (!nfcDataRead.Init() || !nfcDataRead.Parse(onTag)) {
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

void MakeNewest(ManagedImage& image) {
    platform::Lock memory(ManagedImage::m_memoryMutex);
    image.MakeNewest();
}

// A working chip returns something other than zero at one of these places. The number thread
// checks one place less.
bool LooksWritten(const RandomNumber& number) {
    return (number[0] | number[1] | number[2] | number[kNumberSize - 1]) != 0;
}

bool IsReadBeforeWrite() {
    return std::any_of(Routes().begin(), Routes().end(),
                       [](const Route* route) { return route->IsReadBeforeWrite(); });
}

// Device start leaves the radio off on some chips; phones are to see a written tag. A chip takes no
// frame while it stores a block, so this keeps out of the pause that follows another thread's
// block.
void MakeReadable() {
    const platform::Lock content(ContentLock::m_mutex);
    for (Route* const route : Routes()) {
        route->MakeReadable();
    }
}

}  // namespace

// By value: the host's pointer may be the manager's own, which this may replace.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
int NfcManager::WriteMessage(std::shared_ptr<NdefMessage> message) {
    const OperationScope scope;
    platform::Lock operation(m_staticDeviceMutex);
    // The end of another manager takes effect after the whole write, radio included.
    const EventSlot::KeepOpen transferEvent(g_ioEvent.value);
    LogWarnFun("NFC_WriteMessage with dynamic delay begin!");
    if (message == nullptr) {
        LogErrorFun("WriteMessage msg nullptr");
        return kFailure;
    }
    NfcManager held(*this);
    const std::shared_ptr<ManagedImage> image = held.m_nfcData;
    // Copied first: the message is often the manager's own object, which the read overwrites.
    ManagedImage::Generation begin = 0;
    MessageFields fields;
    {
        platform::Lock memory(ManagedImage::m_memoryMutex);
        begin = image != nullptr ? image->generation() : 0;
        fields = FieldsOf(*message);
    }
    if (!IsReadBeforeWrite()) {
        LogWarnFun("Nfc_ReadMessage not need");
    } else if (held.ReadIntoMessage(held.m_ndefMessage) != kSuccess) {
        LogErrorFun("WriteMessage Read failed");
        platform::Lock memory(ManagedImage::m_memoryMutex);
        if (m_nfcData == image && m_ndefMessage == held.m_ndefMessage) {
            m_ndefMessage = message;  // unless the manager has been assigned to
        }
        held.m_ndefMessage = message;
    }
    NdefMessage* const own = held.m_ndefMessage.get();
    {
        platform::Lock memory(ManagedImage::m_memoryMutex);
        if (own != nullptr) {
            UseNewerNumber(image.get(), begin, fields);
            own->SetRandomNumber(fields.number);
            if (HasStorableUrl(fields)) {
                own->SetUrl(fields.url);
            }
            own->SetModel(fields.model);
            own->SetMac(fields.mac);
        }
    }
    if (own == nullptr) {
        LogErrorFun("WriteMessage m_ndefMessage nullptr");
        return kFailure;
    }
    int result = kSuccess;
    if (!held.UpdateTag()) {
        LogErrorFun("UpdateNfcData failed");
        result = kFailure;
    }
    if (held.m_nfcProxy == nullptr || !NfcThreadCreate()) {
        return kFailure;
    }
    MakeReadable();
    return result;
}

int NfcManager::ReadMessage(const std::shared_ptr<NdefMessage>& target) {
    platform::Lock operation(m_staticDeviceMutex);
    return ReadIntoMessage(target);
}

// Under m_staticDeviceMutex.
int NfcManager::ReadIntoMessage(const std::shared_ptr<NdefMessage>& target) {
    NfcManager held(*this);
    ManagedImage* const image = held.m_nfcData.get();
    ManagedImage::Generation begin = 0;
    if (image != nullptr) {
        platform::Lock memory(ManagedImage::m_memoryMutex);
        begin = image->GenerationIgnoringPending();
    }
    std::string onTag;
    if (held.m_nfcProxy == nullptr || !ReadImage(onTag)) {
        LogErrorFun("ReadMessage ReadNfcContent failed");
        return kFailure;
    }
    MessageFields fields;
    if (!ParseFields(onTag, fields)) {
        return kFailure;
    }
    if (target == nullptr || !HasStorableUrl(fields)) {
        return kFailure;
    }
    const bool isOwn = target == held.m_ndefMessage;
    {
        platform::Lock memory(ManagedImage::m_memoryMutex);
        if (isOwn) {
            UseNewerNumber(image, begin, fields);
        }
        target->SetUrl(fields.url);
        target->SetMac(fields.mac);
        target->SetRandomNumber(fields.number);
        target->SetModel(fields.model);
    }
    return held.SetContent(isOwn ? NumberFrom::kTag : NumberFrom::kHost) ? kSuccess : kFailure;
}

bool NfcManager::UpdateNfcData() {
    const OperationScope scope;
    platform::Lock operation(m_staticDeviceMutex);
    const EventSlot::KeepOpen transferEvent(g_ioEvent.value);
    return UpdateTag();
}

// Under m_staticDeviceMutex.
bool NfcManager::UpdateTag() {
    NfcManager held(*this);
    if (!held.SetContent(NumberFrom::kHost)) {
        return false;
    }
    ManagedImage* const image = held.m_nfcData.get();
    if (held.m_nfcProxy == nullptr || image == nullptr) {
        LogErrorFun("nullptr error");
        return false;
    }
    MakeNewest(*image);
    const bool written = TryThrice([&] {
        LogWarnFun("UpdateNfcData begin writing Nfc Chip");
        return WriteImage(*image);
    });
    if (!written) {
        LogErrorFun("UpdateNfcData Write failed");
        return false;
    }
    LogWarnFun("UpdateNfcData Write Nfc Chip Successful");
    RandomNumber number{};
    for (int count = 0; count < kTagAttempts; ++count) {
        LogWarnFun("UpdateNfcData begin ReadRandNum %d", count);
        if (!ReadNumber(number.data())) {
            LogErrorFun("ReadRandNum ReadNfc failed");
            LogErrorFun("ReadRandNum failed %d", count);
        } else if (LooksWritten(number)) {
            LogWarnFun("UpdateNfcData ReadRandNum Successful");
            NfcProxy::SetLocalNum(number.data());
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
    platform::Lock operation(m_staticDeviceMutex);
    const EventSlot::KeepOpen transferEvent(g_ioEvent.value);
    LogWarnFun("NfcManager::UpdateNfcContent()");
    NfcManager held(*this);
    if (!held.SetContent(NumberFrom::kHost)) {
        LogErrorFun("UpdateNfcContent SetContent fail");
        return false;
    }
    ManagedImage* const image = held.m_nfcData.get();
    if (!StartDeviceWithRetries()) {
        return false;
    }
    MakeNewest(*image);
    LogWarnFun("NfcManager::InitNfcDevice done");
    std::string onTag;
    if (!ReadImage(onTag)) {
        LogErrorFun("UpdateNfcContent ReadNfcContent failed");
        return false;
    }
    LogWarnFun("UpdateNfcContent ReadNfcContent done");
    if (onTag != BuildImage(*image)) {
        LogWarnFun("UpdateNfcContent: Writing NfcContent");
        if (!TryThrice([&] { return WriteImage(*image); })) {
            LogErrorFun("UpdateNfcContent reWrite failed");
            return false;
        }
        LogWarnFun("UpdateNfcContent Write Nfc Chip Successful");
    }
    RandomNumber number{};
    if (!ReadNumber(number.data())) {
        LogErrorFun("ReadRandNum ReadNfc failed");
        LogErrorFun("ReadRandNum failed");
        return false;
    }
    NfcProxy::SetLocalNum(number.data());
    return true;
}
