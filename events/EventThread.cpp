#include "events/EventThread.h"

#include <mutex>

#include "platform/NeverDestroyed.h"
#include "transfer/LockOrder.h"

std::atomic<bool> g_interruptRunning{true};
std::atomic<bool> g_readHidRunning{true};
std::atomic<HANDLE> m_staticNotificationThread{nullptr};
std::atomic<HANDLE> m_staticCallThread{nullptr};
std::atomic<HANDLE> g_hReadHidThread{nullptr};
std::atomic<HANDLE> g_interruptEvent{nullptr};
std::atomic<HANDLE> g_readHidEvent{nullptr};
OVERLAPPED g_interruptOverlapped{};
OVERLAPPED g_readHidOverlapped{};

EventThread g_interruptThread{m_staticNotificationThread, g_interruptRunning, &g_interruptEvent,
                              &g_interruptOverlapped};
EventThread g_deferThread{m_staticCallThread, g_interruptRunning, nullptr, nullptr};
EventThread g_keyboardThread{g_hReadHidThread, g_readHidRunning, &g_readHidEvent,
                             &g_readHidOverlapped};

namespace {

// The life lock: every decision about starting and ending a thread.
platform::Mutex g_threadLifeMutex{kThreadLifeLock};

}  // namespace

EventThread::Start EventThread::EnsureStarted(LPTHREAD_START_ROUTINE procedure) {
    platform::KeepLoaded();
    platform::Lock lock(g_threadLifeMutex);
    ++m_wanted;
    if (m_failed) {
        CloseThreadHandle();
    }
    if (m_handle != nullptr) {
        return Start::kAlreadyExists;
    }
    m_handle = CreateThread(nullptr, 0, procedure, nullptr, 0, nullptr);
    if (m_handle == nullptr) {
        return Start::kFailed;
    }
    m_seat = ++m_started;
    return Start::kStarted;
}

void EventThread::Stop() {
    platform::Lock lock(g_threadLifeMutex);
    m_running = false;
    if (m_event != nullptr && *m_event != nullptr) {
        SetEvent(*m_event);
    }
}

bool EventThread::Hold() {
    platform::Lock lock(g_threadLifeMutex);
    if (!m_running && m_handle == nullptr) {
        return false;
    }
    ++m_holds;
    return true;
}

void EventThread::Release() {
    platform::Lock lock(g_threadLifeMutex);
    --m_holds;
}

void EventThread::GiveUp() {
    platform::Lock lock(g_threadLifeMutex);
    if (m_handle == nullptr) {
        return;
    }
    WaitForSingleObject(m_handle, 0);
    CloseThreadHandle();
    m_seat = 0;
    if (m_event != nullptr && *m_event != nullptr) {
        SetEvent(*m_event);
    }
}

EventThread::Ticket EventThread::Enter() {
    platform::Lock lock(g_threadLifeMutex);
    Ticket ticket;
    ticket.seat = ++m_entered;
    ticket.wanted = m_wanted;
    return ticket;
}

bool EventThread::Arm(Ticket& ticket, OVERLAPPED& overlapped) {
    platform::Lock lock(g_threadLifeMutex);
    ticket.event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (ticket.event == nullptr) {
        m_failed = m_failed || HasSeat(ticket);
        return false;
    }
    overlapped = *m_overlapped;
    overlapped.hEvent = ticket.event;
    // A thread that has lost its seat must not hide the event of the one that serves.
    if (HasSeat(ticket)) {
        *m_event = ticket.event;
        m_overlapped->hEvent = ticket.event;
    }
    return true;
}

void EventThread::BeginPass(Ticket& ticket) {
    platform::Lock lock(g_threadLifeMutex);
    ticket.wanted = m_wanted;
}

bool EventThread::HasSeat(const Ticket& ticket) const {
    return ticket.seat == m_seat;
}

bool EventThread::Serving(const Ticket& ticket) const {
    return m_running && HasSeat(ticket);
}

bool EventThread::Held(const Ticket& ticket) const {
    return m_holds > 0 && HasSeat(ticket);
}

bool EventThread::TryEnd(Ticket& ticket) {
    platform::Lock lock(g_threadLifeMutex);
    const bool wanted = ticket.wanted != m_wanted;
    const bool serves = HasSeat(ticket);
    const bool goesOn = serves && ((m_running && wanted) || m_holds > 0);
    if (serves && !goesOn) {
        CloseThreadHandle();
    }
    CloseEvent(ticket);
    return !goesOn;
}

void EventThread::CloseThreadHandle() {
    CloseHandle(m_handle);
    m_handle = nullptr;
    m_failed = false;
}

void EventThread::CloseEvent(Ticket& ticket) {
    if (ticket.event == nullptr) {
        return;
    }
    if (*m_event == ticket.event) {
        *m_event = nullptr;
        m_overlapped->hEvent = nullptr;
    }
    CloseHandle(ticket.event);
    ticket.event = nullptr;
}
