#include "routes/PcType.h"

#include "tagimage/ImageGeometry.h"

std::atomic<std::uint8_t> g_pcModel{kPcTypeOrvane};

std::optional<std::size_t> ReadBackUriSize(std::uint8_t pcType) {
    switch (pcType) {
        case kPcTypeBlank:
            return imageformat::kBlankUriSize;
        case kPcTypeOrvane:
        case kPcTypeVelmo:
            return imageformat::kShownUriSize;
        default:
            return std::nullopt;
    }
}
