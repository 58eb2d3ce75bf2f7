// Operations of NfcProxy over every active route: the whole image, the number alone.
#include <cstdint>
#include <optional>

#include "diagnostics/Log.h"
#include "events/NumberStore.h"
#include "platform/BoundedMemory.h"
#include "platform/NeverDestroyed.h"
#include "routes/NfcProxy.h"
#include "routes/PcType.h"
#include "routes/RouteTable.h"
#include "tagimage/ImageGeometry.h"
#include "transfer/Buffer.h"

namespace {

constexpr std::int32_t kLongestWrite = imageformat::kMaxImageSize;

// The random number as a read-back last confirmed it. For a debugger: nothing reads it.
platform::NeverDestroyed<NumberStore> g_localNumber;

}  // namespace

bool NfcProxy::WriteNfcContent(const std::string& image) {
    if (image.size() > static_cast<std::size_t>(kLongestWrite)) {
        return false;
    }
    const Buffer bytes = AllocateBuffer(image.size());
    if (bytes == nullptr) {
        LogErrorFun("WriteNfcContent: malloc nfcData fail");
        return false;
    }
    if (platform::memcpy_s(bytes.get(), image.size(), image.data(), image.size()) != 0) {
        LogErrorFun("WriteNfcContent memcpy_s fail");
        return false;
    }
    const auto length = static_cast<std::int32_t>(image.size());
    for (Route* const route : Routes()) {
        if (route->IsActive() && !route->WriteImage(bytes.get(), length)) {
            return false;
        }
    }
    return true;
}

bool NfcProxy::ReadRandNumber(std::uint8_t* number) {
    const std::optional<std::size_t> uriSize = ReadBackUriSize(g_pcModel);
    if (!uriSize) {
        LogErrorFun("NFC g_pcModel type unsupport");
        return false;
    }
    const std::uint16_t regAddr = imageformat::NumberRegister(*uriSize);
    LogWarnFun("NFC ReadRandNumber regAddr = %d ", regAddr);
    for (Route* const route : Routes()) {
        if (route->IsActive() && !route->ReadNumber(regAddr, number)) {
            return false;
        }
    }
    return true;
}

bool NfcProxy::SetLocalNum(const std::uint8_t* number) {
    RandomNumber local{};
    const bool taken = platform::memcpy_s(local.data(), local.size(), number, local.size()) == 0;
    g_localNumber.value.Set(local.data());
    if (!taken) {
        LogErrorFun("SetLocalNum memcpy_s fail");
    }
    return taken;
}
