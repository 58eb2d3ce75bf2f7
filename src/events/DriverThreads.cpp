#include "events/DriverThreads.h"

#include "diagnostics/Log.h"
#include "events/Visit.h"
#include "platform/NeverDestroyed.h"

std::atomic<bool> g_interruptRunning{true};
std::atomic<HANDLE> m_staticNotificationThread{nullptr};
std::atomic<HANDLE> m_staticCallThread{nullptr};
std::atomic<HANDLE> g_interruptEvent{nullptr};
OVERLAPPED g_interruptOverlapped{};

ThreadLife& InterruptLife() {
    static platform::NeverDestroyed<ThreadLife> life{ThreadLife::Published{
        m_staticNotificationThread, g_interruptRunning, &g_interruptEvent, &g_interruptOverlapped}};
    return life.value;
}

ThreadLife& DeferCallLife() {
    static platform::NeverDestroyed<ThreadLife> life{
        ThreadLife::Published{m_staticCallThread, g_interruptRunning, nullptr, nullptr},
        [] { return Visit::Get().IsOpen(); }};
    return life.value;
}

bool StartDriverThreads() {
    // First: the interrupt thread may open a visit at once. An earlier stop must not forbid it.
    DeferCallLife().AnnounceStart();
    const auto interrupt = InterruptLife().EnsureStarted(InterruptThread);
    if (interrupt == ThreadLife::Start::kAlreadyExists) {
        LogWarnFun("NFC_ m_staticNotificationThread already exist");
    }
    const auto deferCall = DeferCallLife().EnsureStarted(DeferCallThread);
    if (deferCall == ThreadLife::Start::kAlreadyExists) {
        LogWarnFun("NFC_ m_staticCallThread already exist");
    }
    const bool interruptExists = interrupt != ThreadLife::Start::kFailed;
    const bool deferCallExists = deferCall != ThreadLife::Start::kFailed;
    if (interruptExists && deferCallExists) {
        return true;
    }
    if (interruptExists) {
        LogWarnFun("NfcThreadCreate exit Begin WaitForSingleObject");
        InterruptLife().Abandon();
    } else if (deferCallExists) {
        DeferCallLife().Abandon();
        Visit::Get().Wake();
    }
    return false;
}

void StopDriverThreads() {
    // First the thread that closes visits: it may end at once, and from then on none may be opened.
    DeferCallLife().Stop(ThreadLife::Wake::kNo);
    InterruptLife().Stop(ThreadLife::Wake::kYes);
}
