// A whole image to the tag, and the number alone from it, over every active route.
#include <cstdint>
#include <optional>

#include "diagnostics/Log.h"
#include "platform/BoundedMemory.h"
#include "routes/NfcProxy.h"
#include "routes/Route.h"
#include "routes/RouteState.h"
#include "tagimage/ImageGeometry.h"
#include "transfer/Buffer.h"

namespace {

constexpr std::int32_t kLongestWrite = imageformat::kMaxImageSize;

// By the PC type alone, whatever the size of the URI on the tag is.
std::optional<std::uint16_t> NumberRegister(std::uint8_t pcModel) {
    switch (pcModel) {
        case kPcTypeBlank:
            return imageformat::NumberRegister(imageformat::kBlankUriSize);
        case kPcTypeOrvane:
        case kPcTypeVelmo:
            return imageformat::NumberRegister(imageformat::kShownUriSize);
        default:
            return std::nullopt;
    }
}

}  // namespace

bool NfcProxy::WriteNfcContent(const std::string& content) {
    if (content.size() > static_cast<std::size_t>(kLongestWrite)) {
        return false;
    }
    const Buffer image = AllocateBuffer(content.size());
    if (image == nullptr) {
        LogErrorFun("WriteNfcContent: malloc nfcData fail");
        return false;
    }
    if (platform::memcpy_s(image.get(), content.size(), content.data(), content.size()) != 0) {
        LogErrorFun("WriteNfcContent memcpy_s fail");
        return false;
    }
    const auto length = static_cast<std::int32_t>(content.size());
    for (Route* const route : Routes()) {
        if (route->IsActive() && !route->WriteImage(*this, image.get(), length)) {
            return false;
        }
    }
    return true;
}

bool NfcProxy::ReadRandNumber(std::uint8_t* number) {
    const std::optional<std::uint16_t> regAddr = NumberRegister(g_pcModel);
    if (!regAddr) {
        LogErrorFun("NFC g_pcModel type unsupport");
        return false;
    }
    LogWarnFun("NFC ReadRandNumber regAddr = %d ", *regAddr);
    for (Route* const route : Routes()) {
        if (route->IsActive() && !route->ReadNumber(*this, *regAddr, number)) {
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
