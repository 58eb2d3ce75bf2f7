#include "chip/TransferState.h"

std::atomic<HANDLE> DeviceHandle{nullptr};
OVERLAPPED g_ioOverlapped{};
platform::NeverDestroyed<EventSlot> g_ioEvent;
