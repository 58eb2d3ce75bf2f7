#include "peripheral/PeripheralState.h"

namespace {

constexpr std::uint8_t kInitialPcModel = 5;

}  // namespace

std::atomic<bool> g_isI2cDriver{false};
std::atomic<bool> g_isUsbDriver{false};
std::atomic<bool> g_isHidDevice{false};
std::atomic<bool> g_mcuKbConnected{false};
std::atomic<std::uint8_t> g_pcModel{kInitialPcModel};
std::atomic<NfcListener> staticCallback{nullptr};
std::atomic<bool> g_interruptFirst{true};
std::atomic<std::int32_t> g_fieldCount{0};

platform::NeverDestroyed<NumberStore> g_tagRandNumber;
platform::NeverDestroyed<NumberStore> g_hidRandNumber;
platform::NeverDestroyed<NumberStore> g_btRandNumber;
platform::NeverDestroyed<NumberStore> g_localNumber;

platform::NeverDestroyed<EventSlot> g_RandEvent;
platform::NeverDestroyed<EventSlot> g_btRandEvent;
platform::NeverDestroyed<std::mutex> g_contentMutex;

std::uint8_t g_frameHead[kFrameHeadSize] = {};
std::uint8_t g_hidReportHead[kReportHeadSize] = {};
