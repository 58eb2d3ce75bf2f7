#include "manager/ThreadCreate.h"

#include "diagnostics/Log.h"
#include "events/EventState.h"
#include "events/EventThread.h"
#include "platform/platform.h"
#include "routes/RouteState.h"

bool NfcThreadCreate() {
    LogWarnFun("NfcThreadCreate start");
    // Before the threads start: a new thread finds the flag set.
    g_interruptFirst = true;
    g_interruptRunning = true;
    g_readHidRunning = true;
    const auto interrupt = g_interruptThread.EnsureStarted(InterruptThread);
    if (interrupt == EventThread::Start::kAlreadyExists) {
        LogWarnFun("NFC_ m_staticNotificationThread already exist");
    }
    const auto defer = g_deferThread.EnsureStarted(DeferCallThread);
    if (defer == EventThread::Start::kAlreadyExists) {
        LogWarnFun("NFC_ m_staticCallThread already exist");
    }
    const bool interruptExists = interrupt != EventThread::Start::kFailed;
    const bool deferExists = defer != EventThread::Start::kFailed;
    if (interruptExists && deferExists) {
        LogWarnFun("NfcThreadCreate pass");
        return true;
    }
    if (interruptExists) {
        LogWarnFun("NfcThreadCreate exit Begin WaitForSingleObject");
        g_interruptThread.GiveUp();
    } else if (deferExists) {
        g_deferThread.GiveUp();
    }
    LogWarnFun("NfcThreadCreate fail");
    return false;
}
