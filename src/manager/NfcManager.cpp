// How a manager is made and ends, and how its message gets into the tag image.
#include <tagport/NfcManager.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include "diagnostics/Log.h"
#include "events/Listener.h"
#include "manager/Limits.h"
#include "manager/ManagedImage.h"
#include "manager/ManagerLocks.h"
#include "platform/platform.h"
#include "routes/NfcProxy.h"
#include "routes/PcType.h"
#include "tagimage/ImageGeometry.h"
#include "tagimage/NfcData.h"

static_assert(kNumberSize == imageformat::kNumberSize);

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
    platform::Lock lock(ManagedImage::m_memoryMutex);
    // NOLINTBEGIN(cppcoreguidelines-prefer-member-initializer): initializers run outside the lock
    m_nfcData = other.m_nfcData;
    m_nfcProxy = other.m_nfcProxy;
    m_ndefMessage = other.m_ndefMessage;
    // NOLINTEND(cppcoreguidelines-prefer-member-initializer)
}

NfcManager& NfcManager::operator=(const NfcManager& other) {
    NfcManager replaced(other);  // ends after the lock, with what was held until now
    platform::Lock lock(ManagedImage::m_memoryMutex);
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
    m_nfcData = std::make_shared<ManagedImage>();
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
    NfcData image;
    if (!image.Init()) {
        LogErrorFun("m_nfcData Init failed");
        return false;
    }
    if (!image.InitValue()) {
        LogErrorFun("m_nfcData InitValue failed");
        return false;
    }
    {
        platform::Lock lock(ManagedImage::m_memoryMutex);
        m_nfcData->data = std::move(image);
    }
    if (!SetContent(NumberFrom::kHost)) {
        LogErrorFun("NfcManager Init SetContent failed");
        return false;
    }
    LogWarnFun("NfcManager::Init() success");
    return true;
}

// Copies message and image, fills the copy, and puts it back: a slow log keeps nobody from the
// memory.
bool NfcManager::SetContent(NumberFrom source) {
    NfcManager held(*this);
    if (held.m_ndefMessage == nullptr || held.m_nfcProxy == nullptr) {
        LogErrorFun("SetContent nullptr error");
        return false;
    }
    ManagedImage& image = *held.m_nfcData;
    NfcData filled;
    ManagedImage::Generation copied = 0;
    std::uint8_t mac[imageformat::kMacSize] = {};
    std::string url;
    std::uint8_t number[kNumberSize] = {};
    std::uint8_t model[imageformat::kModelSize] = {};
    std::uint8_t pcType = 0;
    {
        platform::Lock lock(ManagedImage::m_memoryMutex);
        held.m_ndefMessage->GetMac(mac);
        held.m_ndefMessage->GetUrl(url);
        held.m_ndefMessage->GetRandomNumber(number);
        held.m_ndefMessage->GetModel(model);
        held.m_ndefMessage->GetPcType(pcType);
        if (source == NumberFrom::kHost) {
            RandomNumber given{};
            std::copy(std::begin(number), std::end(number), given.begin());
            image.SetGiven(given);
        }
        copied = image.generation();
        filled = image.data;
    }
    const bool complete = SetMacAddr(filled, mac) && SetUrl(filled, url) &&
                          SetRandomNumber(filled, number) && SetModel(filled, model);
    const std::optional<std::size_t> readBackSize = ReadBackUriSize(pcType);
    {
        platform::Lock lock(ManagedImage::m_memoryMutex);
        const RandomNumber* const newer = image.NewerThan(copied);
        if (newer != nullptr) {
            filled.ReplaceNumber(*newer);
        }
        image.data = std::move(filled);
        if (complete && readBackSize) {
            g_pcModel = pcType;
        }
    }
    if (!complete) {
        LogErrorFun("SetContent fail");
        return false;
    }
    if (!readBackSize) {
        LogErrorFun("SetModel unsupport!");
        return false;
    }
    if (url.size() != *readBackSize) {
        LogErrorFun("uri size is %d, but the random number is read back for a size of %d",
                    static_cast<int>(url.size()), static_cast<int>(*readBackSize));
    }
    return true;
}

bool NfcManager::SetMacAddr(NfcData& image, const std::uint8_t (&mac)[6]) {
    if (!image.SetMacAddr(mac)) {
        LogErrorFun("m_nfcData SetMacAddr failed");
        return false;
    }
    return true;
}

bool NfcManager::SetUrl(NfcData& image, const std::string& url) {
    if (url.size() > kMaxUrlSize || !image.SetUrl(url)) {
        LogErrorFun("m_nfcData SetUrl failed");
        return false;
    }
    return true;
}

bool NfcManager::SetRandomNumber(NfcData& image, const std::uint8_t (&number)[32]) {
    if (!image.SetRandomNumber(number)) {
        LogErrorFun("m_nfcData SetRandomNumber failed");
        return false;
    }
    return true;
}

bool NfcManager::SetModel(NfcData& image, const std::uint8_t (&model)[4]) {
    if (!image.SetModel(model)) {
        LogErrorFun("m_nfcData SetModel failed");
        return false;
    }
    return true;
}

std::shared_ptr<NfcProxy> NfcManager::Proxy() const {
    platform::Lock lock(ManagedImage::m_memoryMutex);
    return m_nfcProxy;
}

void NfcManager::RegisterListener(NfcListener listener) {
    if (Proxy() == nullptr) {
        LogErrorFun("RegisterListener failed");
        return;
    }
    staticCallback = listener;
}
