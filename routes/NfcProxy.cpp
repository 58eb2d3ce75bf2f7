// A proxy's beginning and end.
#include "routes/NfcProxy.h"

#include "events/EventState.h"
#include "events/EventThread.h"
#include "platform/NeverDestroyed.h"
#include "routes/RouteState.h"
#include "transfer/TransferState.h"

NfcProxy::NfcProxy() {
    g_interruptFirst = true;
    g_interruptRunning = true;
    g_readHidRunning = true;
}

NfcProxy::~NfcProxy() {
    g_interruptThread.Stop();
    g_keyboardThread.Stop();
    g_ioEvent.value.Close();
}

std::shared_ptr<NfcProxy> NfcProxy::Detached() {
    static platform::NeverDestroyed<NfcProxy> proxy{DetachedTag{}};
    return {std::shared_ptr<NfcProxy>(), &proxy.value};
}
