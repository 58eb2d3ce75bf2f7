#include "routes/Keyboards.h"

std::atomic<bool> g_isHidDevice{false};
std::atomic<bool> g_mcuKbConnected{false};

platform::NeverDestroyed<NumberStore> g_hidRandNumber;
platform::NeverDestroyed<NumberStore> g_btRandNumber;

platform::NeverDestroyed<EventSlot> g_RandEvent;
platform::NeverDestroyed<EventSlot> g_btRandEvent;
