// The chip kinds by their names.
#include "simulator/Chip.h"

#include <string_view>

#include "simulator/FanliChip.h"
#include "simulator/Fm11nChip.h"
#include "simulator/SilentChip.h"

namespace simulator {

namespace {

// The dynamic lock follows the data area directly.
constexpr unsigned kDynamicLock = 0x0388;
constexpr unsigned kUpperDynamicLock = 0x03C8;

constexpr Fm11nTraits kFm11nt081 = {0x1D, 0x00, kDynamicLock, kFm11nReadGap};
constexpr Fm11nTraits kFm11nt082c = {0x1D, 0x10, kUpperDynamicLock, 0};
constexpr Fm11nTraits kLikeFm11n = {0x53, 0x02, kDynamicLock, kFm11nReadGap};

template <class Model, const auto&... arguments>
std::unique_ptr<Chip> Make() {
    return std::make_unique<Model>(arguments...);
}

constexpr struct {
    std::string_view name;
    std::unique_ptr<Chip> (*make)();
} kMakers[] = {{"fm11nt081", Make<Fm11nChip, kFm11nt081>},
               {"fm11nt082c", Make<Fm11nChip, kFm11nt082c>},
               {"like-fm11n", Make<Fm11nChip, kLikeFm11n>},
               {"fanli", Make<FanliChip, kFanliIdentity>},
               {"like-fanli", Make<FanliChip, kLikeFanliIdentity>},
               {"silent", Make<SilentChip>}};

}  // namespace

std::unique_ptr<Chip> MakeChip(const std::string& name) {
    for (const auto& [known, make] : kMakers) {
        if (name == known) {
            return make();
        }
    }
    return nullptr;
}

}  // namespace simulator
