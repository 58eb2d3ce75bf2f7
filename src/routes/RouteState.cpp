#include "routes/RouteState.h"

namespace {

constexpr std::uint8_t kInitialPcModel = 5;

}  // namespace

std::atomic<bool> g_isHidDevice{false};
std::atomic<bool> g_mcuKbConnected{false};
std::atomic<std::uint8_t> g_pcModel{kInitialPcModel};

platform::NeverDestroyed<NumberStore> g_hidRandNumber;
platform::NeverDestroyed<NumberStore> g_btRandNumber;
platform::NeverDestroyed<NumberStore> g_localNumber;

platform::NeverDestroyed<EventSlot> g_RandEvent;
platform::NeverDestroyed<EventSlot> g_btRandEvent;

std::uint8_t g_frameHead[kFrameHeadSize] = {};
std::uint8_t g_hidReportHead[kReportHeadSize] = {};
