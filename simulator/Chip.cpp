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

std::unique_ptr<Chip> MakeChip(const std::string& name) {
    if (name == "fm11nt081") {
        return std::make_unique<Fm11nChip>(kFm11nt081);
    }
    if (name == "fm11nt082c") {
        return std::make_unique<Fm11nChip>(kFm11nt082c);
    }
    if (name == "like-fm11n") {
        return std::make_unique<Fm11nChip>(kLikeFm11n);
    }
    if (name == "fanli") {
        return std::make_unique<FanliChip>(kFanliIdentity);
    }
    if (name == "like-fanli") {
        return std::make_unique<FanliChip>(kLikeFanliIdentity);
    }
    return name == "silent" ? std::make_unique<SilentChip>() : nullptr;
}

}  // namespace simulator
