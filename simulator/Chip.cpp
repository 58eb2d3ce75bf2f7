// The chip kinds by their names.
#include "simulator/Chip.h"

#include "simulator/FanliChip.h"
#include "simulator/Fm11nChip.h"
#include "simulator/SilentChip.h"

namespace simulator {

namespace {

// The dynamic lock follows the data area directly: its register is also the end of the data.
constexpr unsigned kDynamicLock = 0x0388;
constexpr unsigned kUpperDynamicLock = 0x03C8;
constexpr std::uint8_t kStartFdMode = 0x00;

constexpr Fm11nTraits kFm11nt081 = {0x1D,         0x00,          kDynamicLock,
                                    kDynamicLock, kFm11nReadGap, kStartFdMode};
// The mode register of the 082C lies inside the data of its bigger memory, so phones get the data
// area of the other chips.
constexpr Fm11nTraits kFm11nt082c = {0x1D, 0x10, kUpperDynamicLock, kDynamicLock, 0, kStartFdMode};
constexpr Fm11nTraits kLikeFm11n = {0x53,         0x02,          kDynamicLock,
                                    kDynamicLock, kFm11nReadGap, kStartFdMode};

}  // namespace

const std::vector<std::string>& ChipKinds() {
    static const std::vector<std::string> kinds = {"fm11nt081", "fm11nt082c", "like-fm11n",
                                                   "fanli",     "like-fanli", "silent"};
    return kinds;
}

bool IsFanliKind(const std::string& kind) {
    return kind == "fanli" || kind == "like-fanli";
}

std::unique_ptr<Chip> MakeChip(const std::string& kind) {
    if (kind == "fm11nt081") {
        return std::make_unique<Fm11nChip>(kFm11nt081);
    }
    if (kind == "fm11nt082c") {
        return std::make_unique<Fm11nChip>(kFm11nt082c);
    }
    if (kind == "like-fm11n") {
        return std::make_unique<Fm11nChip>(kLikeFm11n);
    }
    if (kind == "fanli") {
        return std::make_unique<FanliChip>(kFanliIdentity);
    }
    if (kind == "like-fanli") {
        return std::make_unique<FanliChip>(kLikeFanliIdentity);
    }
    if (kind == "silent") {
        return std::make_unique<SilentChip>();
    }
    return nullptr;
}

}  // namespace simulator
