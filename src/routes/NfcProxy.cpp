#include "routes/NfcProxy.h"

#include "diagnostics/Log.h"
#include "events/DriverThreads.h"
#include "events/Visit.h"
#include "platform/NeverDestroyed.h"
#include "routes/RouteTable.h"
#include "transfer/WaitForCommand.h"

namespace {

// The next interrupt opens a visit, and the loops may run.
void AllowEvents() {
    Visit::Get().Arm();
    for (Route* const route : Routes()) {
        route->SetRunFlag();
    }
}

}  // namespace

NfcProxy::NfcProxy() {
    AllowEvents();
}

NfcProxy::~NfcProxy() {
    for (auto route = Routes().rbegin(); route != Routes().rend(); ++route) {
        (*route)->StopLoop();
    }
    g_ioEvent.value.Close();
}

std::shared_ptr<NfcProxy> NfcProxy::Detached() {
    static platform::NeverDestroyed<NfcProxy> proxy{DetachedTag{}};
    return {std::shared_ptr<NfcProxy>(), &proxy.value};
}

bool NfcThreadCreate() {
    LogWarnFun("NfcThreadCreate start");
    AllowEvents();
    if (!StartDriverThreads()) {
        LogWarnFun("NfcThreadCreate fail");
        return false;
    }
    LogWarnFun("NfcThreadCreate pass");
    return true;
}
