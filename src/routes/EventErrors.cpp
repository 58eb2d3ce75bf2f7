#include "routes/EventErrors.h"

#include "diagnostics/Log.h"

// People search their logs for these texts, so they stay as they are. Their blank flag has no
// effect on an unsigned number, which is what the warning says.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"

void LogNoTransferEvent(DWORD error) {
    LogErrorFun("NFC error creating I / O event - % u", static_cast<unsigned>(error));
}

void LogNoHidNumberEvent(DWORD error) {
    LogErrorFun("NFC error creating g_RandEvent - % u", static_cast<unsigned>(error));
}

void LogNoBtNumberEvent(DWORD error) {
    LogErrorFun("[NFC] error creating g_RandEvent - % u", static_cast<unsigned>(error));
}

#pragma GCC diagnostic pop
