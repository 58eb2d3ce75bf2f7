#include "events/EventState.h"

std::atomic<bool> g_isI2cDriver{false};
std::atomic<bool> g_isUsbDriver{false};
std::atomic<NfcListener> staticCallback{nullptr};
std::atomic<bool> g_interruptFirst{true};
std::atomic<std::int32_t> g_fieldCount{0};
platform::NeverDestroyed<NumberStore> g_tagRandNumber;
