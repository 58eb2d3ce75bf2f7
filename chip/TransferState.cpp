#include "chip/TransferState.h"

std::atomic<HANDLE> DeviceHandle{nullptr};
OVERLAPPED g_ioOverlapped{};
platform::NeverDestroyed<EventSlot> g_ioEvent;

void AwaitEnd(HANDLE device, OVERLAPPED& overlapped, DWORD& moved) {
    while (GetOverlappedResult(device, &overlapped, &moved, TRUE) == FALSE &&
           GetLastError() == ERROR_IO_INCOMPLETE) {
    }
}
