// Device start: finding the peripheral, opening it, preparing it, and undoing it all when a step
// fails.
#include <algorithm>
#include <utility>

#include "chip/NfcDeviceContext.h"
#include "diagnostics/Log.h"
#include "events/DriverThreads.h"
#include "platform/platform.h"
#include "routes/EventErrors.h"
#include "routes/NfcProxy.h"
#include "routes/RouteTable.h"
#include "transfer/OpenDevice.h"
#include "transfer/WaitForCommand.h"

namespace {

// Closes the device under the mutex that every transfer holds, so none is in flight. A pending
// request of an event thread fails.
void CloseDevice() TAGPORT_REQUIRES(ContentLock::m_mutex) {
    {
        const platform::Lock lock(GetNfcDeviceContext().mutex);
        OpenDevice::Get().Close();
    }
    for (Route* const route : Routes()) {
        route->OnDeviceClosed();
    }
}

// The loops of the other routes are stopped before the device appears: a loop serves the device
// that it was started for.
void TakeOver(const Route& chosen, UniqueHandle device) {
    for (Route* const route : Routes()) {
        if (route != &chosen && route->IsFound()) {
            route->StopLoop();
        }
    }
    OpenDevice::Get().TakeOver(std::move(device));
}

// Opens the first device that there is.
bool ChooseRoute() TAGPORT_REQUIRES(ContentLock::m_mutex) {
    for (auto route = Routes().rbegin(); route != Routes().rend(); ++route) {
        UniqueHandle device = (*route)->Open();
        if (device) {
            TakeOver(**route, std::move(device));
            return true;
        }
    }
    LogErrorFun("NFC_Error opening any driver, last error = %u",
                static_cast<unsigned>(GetLastError()));
    return false;
}

bool OpenRoute() TAGPORT_REQUIRES(ContentLock::m_mutex) {
    LogWarnFun("NFC_Create DeviceHandle");
    const bool reopens = std::any_of(Routes().begin(), Routes().end(),
                                     [](const Route* route) { return route->ReopensOnStart(); });
    if (reopens) {
        CloseDevice();
    } else if (DeviceHandle != nullptr) {
        LogWarnFun("DeviceHandle already exist");
        return true;
    }
    return ChooseRoute();
}

bool StartDevice() TAGPORT_REQUIRES(ContentLock::m_mutex) {
    if (!OpenRoute()) {
        return false;
    }
    if (!g_ioEvent.value.Create(true)) {
        LogNoTransferEvent(GetLastError());
        return false;
    }
    // A PC that has changed its peripheral has found several routes. It is treated as having the
    // one that is looked for first.
    const auto found = std::find_if(Routes().rbegin(), Routes().rend(),
                                    [](const Route* route) { return route->IsFound(); });
    return (*found)->Start();
}

void UndoStart() TAGPORT_REQUIRES(ContentLock::m_mutex) {
    StopDriverThreads();
    CloseDevice();
    g_ioEvent.value.Close();
    for (Route* const route : Routes()) {
        route->UndoStart();
    }
    LogWarnFun("InitNfcDevice exit CloseHandle done");
}

}  // namespace

bool NfcProxy::InitNfcDevice() {
    const platform::Lock content(ContentLock::m_mutex);
    // The end of another manager in the middle must not make the chip look like another one.
    const EventSlot::KeepOpen keep(g_ioEvent.value);
    try {
        if (StartDevice()) {
            return true;
        }
    } catch (...) {
        UndoStart();
        throw;
    }
    UndoStart();
    return false;
}
