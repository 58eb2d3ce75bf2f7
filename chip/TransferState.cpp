#include "chip/TransferState.h"

std::atomic<HANDLE> DeviceHandle{nullptr};
platform::NeverDestroyed<std::mutex> g_deviceHandleMutex;
OVERLAPPED g_ioOverlapped{};
platform::NeverDestroyed<EventSlot> g_ioEvent;

void AwaitEnd(HANDLE device, OVERLAPPED& overlapped, DWORD& moved) {
    const HANDLE signalled = overlapped.hEvent != nullptr ? overlapped.hEvent : device;
    while (GetOverlappedResult(device, &overlapped, &moved, FALSE) == FALSE &&
           GetLastError() == ERROR_IO_INCOMPLETE) {
        WaitForSingleObject(signalled, INFINITE);
    }
}
