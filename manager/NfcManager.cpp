// A manager's beginning and end, and the way of its message into the tag image.
#include <tagport/NfcManager.h>

#include <utility>

#include "diagnostics/Log.h"
#include "events/EventState.h"
#include "manager/ManagerLocks.h"
#include "manager/MessageLimits.h"
#include "platform/platform.h"
#include "routes/NfcProxy.h"
#include "routes/RouteState.h"
#include "tagimage/ImageGeometry.h"
#include "tagimage/NfcData.h"

namespace {

static_assert(kNumberSize == imageformat::kNumberSize);

bool IsSupported(std::uint8_t pcType) {
    return pcType == kPcTypeBlank || pcType == kPcTypeOrvane || pcType == kPcTypeVelmo;
}

}  // namespace

std::shared_ptr<NfcManager> NfcManager::Create(std::shared_ptr<NdefMessage> message,
                                               NfcListener listener) {
    auto manager = std::make_shared<NfcManager>(std::move(message));
    if (!manager->Init(listener)) {
        LogErrorFun("NfcManager:: Create failed");
        return nullptr;
    }
    return manager;
}

NfcManager::NfcManager(std::shared_ptr<NdefMessage> message) : m_ndefMessage(std::move(message)) {}

NfcManager::NfcManager(const NfcManager& other) {
    platform::Lock lock(g_memoryMutex);
    // NOLINTBEGIN(cppcoreguidelines-prefer-member-initializer): initializers run outside the lock
    m_nfcData = other.m_nfcData;
    m_nfcProxy = other.m_nfcProxy;
    m_ndefMessage = other.m_ndefMessage;
    // NOLINTEND(cppcoreguidelines-prefer-member-initializer)
}

NfcManager& NfcManager::operator=(const NfcManager& other) {
    NfcManager replaced(other);  // ends behind the lock, with what was held until now
    platform::Lock lock(g_memoryMutex);
    m_nfcData.swap(replaced.m_nfcData);
    m_nfcProxy.swap(replaced.m_nfcProxy);
    m_ndefMessage.swap(replaced.m_ndefMessage);
    return *this;
}

NfcManager::~NfcManager() {
    m_nfcData.reset();
    m_nfcProxy.reset();
    m_ndefMessage.reset();
}

bool NfcManager::Init(NfcListener listener) {
    LogWarnFun("NfcManager::Init()");
    m_nfcData = std::make_shared<NfcData>();
    if (m_nfcData == nullptr) {
        LogErrorFun("NfcManager:: create nfc data failed");
        return false;
    }
    m_nfcProxy = std::make_shared<NfcProxy>();
    if (m_nfcProxy == nullptr) {
        LogErrorFun("NfcManager:: create nfc proxy failed");
        return false;
    }
    staticCallback = listener;
    if (!m_nfcData->Init()) {
        LogErrorFun("m_nfcData Init failed");
        return false;
    }
    if (!m_nfcData->InitValue()) {
        LogErrorFun("m_nfcData InitValue failed");
        return false;
    }
    platform::Lock lock(g_memoryMutex);
    if (!SetContent()) {
        LogErrorFun("NfcManager Init SetContent failed");
        return false;
    }
    LogWarnFun("NfcManager::Init() success");
    return true;
}

// Under g_memoryMutex.
bool NfcManager::SetContent() {
    if (m_ndefMessage == nullptr || m_nfcProxy == nullptr) {
        LogErrorFun("SetContent nullptr error");
        return false;
    }
    std::uint8_t mac[6] = {};
    std::string url;
    std::uint8_t number[kNumberSize] = {};
    std::uint8_t model[4] = {};
    std::uint8_t pcType = 0;
    m_ndefMessage->GetMac(mac);
    m_ndefMessage->GetUrl(url);
    m_ndefMessage->GetRandomNumber(number);
    m_ndefMessage->GetModel(model);
    m_ndefMessage->GetPcType(pcType);
    if (!SetMacAddr(mac) || !SetUrl(url) || !SetRandomNumber(number) || !SetModel(model)) {
        LogErrorFun("SetContent fail");
        return false;
    }
    if (!IsSupported(pcType)) {
        LogErrorFun("SetModel unsupport!");
        return false;
    }
    g_pcModel = pcType;
    return true;
}

bool NfcManager::SetMacAddr(const std::uint8_t (&mac)[6]) {
    if (m_nfcData == nullptr || !m_nfcData->SetMacAddr(mac)) {
        LogErrorFun("m_nfcData SetMacAddr failed");
        return false;
    }
    return true;
}

bool NfcManager::SetUrl(const std::string& url) {
    if (url.size() > kMaxUrlSize || m_nfcData == nullptr || !m_nfcData->SetUrl(url)) {
        LogErrorFun("m_nfcData SetUrl failed");
        return false;
    }
    return true;
}

bool NfcManager::SetRandomNumber(const std::uint8_t (&number)[32]) {
    if (m_nfcData == nullptr || !m_nfcData->SetRandomNumber(number)) {
        LogErrorFun("m_nfcData SetRandomNumber failed");
        return false;
    }
    return true;
}

bool NfcManager::SetModel(const std::uint8_t (&model)[4]) {
    if (m_nfcData == nullptr || !m_nfcData->SetModel(model)) {
        LogErrorFun("m_nfcData SetModel failed");
        return false;
    }
    return true;
}

// What an operation works on from its beginning to its end, also when the manager is assigned to.
std::shared_ptr<NfcData> NfcManager::Data() const {
    platform::Lock lock(g_memoryMutex);
    return m_nfcData;
}

std::shared_ptr<NfcProxy> NfcManager::Proxy() const {
    platform::Lock lock(g_memoryMutex);
    return m_nfcProxy;
}

void NfcManager::RegisterListener(NfcListener listener) {
    if (Proxy() == nullptr) {
        LogErrorFun("RegisterListener failed");
        return;
    }
    staticCallback = listener;
}
