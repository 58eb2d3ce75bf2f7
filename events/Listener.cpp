#include "events/Listener.h"

#include <algorithm>

#include "diagnostics/Log.h"
#include "events/EventState.h"

bool DeliverEvent(int event, const NumberStore& number, int route, ShownNumber& shown) {
    const NfcListener listener = staticCallback;
    if (listener == nullptr) {
        LogErrorFun("NFC staticCallback is null");
        return false;
    }
    const RandomNumber current = number.Get();
    std::copy(current.begin(), current.end(), shown);
    listener(event, shown, route);
    return true;
}

void LogLeaveDelivered(const NumberStore& number) {
    const RandomNumber n = number.Get();
    LogWarnFun("NFC_defer call done: %02X%02X%02X%02X%02X%02X%02X%02X", n[0], n[1], n[2], n[3],
               n[4], n[5], n[6], n[7]);
}
