#include "events/Listener.h"

#include <algorithm>

#include "diagnostics/Log.h"

std::atomic<NfcListener> staticCallback{nullptr};

bool Deliverer::Deliver(int event, const RandomNumber& number, int route) {
    const NfcListener listener = staticCallback;
    if (listener == nullptr) {
        LogErrorFun("NFC staticCallback is null");
        return false;
    }
    std::copy(number.begin(), number.end(), m_shown);
    listener(event, m_shown, route);
    return true;
}

void LogLeaveDelivered(const RandomNumber& n) {
    LogWarnFun("NFC_defer call done: %02X%02X%02X%02X%02X%02X%02X%02X", n[0], n[1], n[2], n[3],
               n[4], n[5], n[6], n[7]);
}
