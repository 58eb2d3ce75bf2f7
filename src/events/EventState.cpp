#include "events/EventState.h"

std::atomic<bool> g_isI2cDriver{false};
std::atomic<bool> g_isUsbDriver{false};
std::atomic<NfcListener> staticCallback{nullptr};
platform::NeverDestroyed<NumberStore> g_tagRandNumber;
