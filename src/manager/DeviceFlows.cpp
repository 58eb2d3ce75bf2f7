// The operations that only forward to the peripheral: start, Bluetooth, connection status.
#include <tagport/NfcManager.h>

#include "diagnostics/Log.h"
#include "events/DriverKind.h"
#include "manager/ManagerLocks.h"
#include "manager/TagSteps.h"
#include "platform/platform.h"
#include "routes/Keyboards.h"
#include "routes/NfcProxy.h"
#include "routes/RouteTable.h"

bool NfcManager::DeviceInit() {
    platform::Lock lock(m_staticDeviceMutex);
    LogWarnFun("NfcManager::DeviceInit()");
    if (!StartDeviceWithRetries()) {
        LogErrorFun("NfcManager Init DeviceInit failed");
        return false;
    }
    return true;
}

bool NfcManager::IsActivePC() {
    if (Proxy() == nullptr) {
        LogErrorFun("[NFC] IsPassivePC ,m_nfcProxy is nullptr");
        return false;
    }
    return g_isI2cDriver;
}

bool NfcManager::SetMcuKbConnectStatus(bool status) {
    platform::Lock lock(m_staticMcuKbMutex);
    if (Proxy() == nullptr) {
        LogErrorFun("[NFC] IsPassivePC ,m_nfcProxy is nullptr");
        return false;
    }
    g_mcuKbConnected = status;
    return true;
}

bool NfcManager::BtConnect(std::uint64_t address) {
    const OperationScope scope;
    const std::shared_ptr<NfcProxy> proxy = Proxy();
    if (proxy == nullptr) {
        LogErrorFun("BtConnect failed");
        return false;
    }
    return proxy->BtConnect(address);
}

bool NfcManager::BtDisconnect(std::uint64_t address) {
    const OperationScope scope;
    const std::shared_ptr<NfcProxy> proxy = Proxy();
    if (proxy == nullptr) {
        LogErrorFun("BtDisconnect failed");
        return false;
    }
    return proxy->BtDisconnect(address);
}
