#include "events/ThreadLife.h"

#include "platform/Check.h"

void ThreadLife::SetRunFlag() {
    m_published.running = true;
}

void ThreadLife::AnnounceStart() {
    const platform::Lock lock(m_mutex);
    m_published.running = true;
    m_startFollows = true;
    m_stopped = false;
}

ThreadLife::Start ThreadLife::EnsureStarted(LPTHREAD_START_ROUTINE procedure) {
    platform::KeepLoaded();
    const platform::Lock lock(m_mutex);
    m_published.running = true;
    m_startFollows = true;
    m_stopped = false;
    if (m_broken) {
        CloseThreadHandle();
    }
    if (m_published.handle != nullptr) {
        return Start::kAlreadyExists;
    }
    m_published.handle = CreateThread(nullptr, 0, procedure, nullptr, 0, nullptr);
    if (m_published.handle == nullptr) {
        m_stopped = true;
        return Start::kFailed;
    }
    // The new thread enters under the same lock, so it finds its number here.
    m_current = ++m_created;
    return Start::kStarted;
}

void ThreadLife::Stop(Wake wake) {
    const platform::Lock lock(m_mutex);
    m_published.running = false;
    m_stopped = true;
    AddReason();
    if (wake == Wake::kYes) {
        WakeLoop();
    }
}

void ThreadLife::OnDeviceClosed() {
    const platform::Lock lock(m_mutex);
    AddReason();
}

void ThreadLife::Abandon() {
    const platform::Lock lock(m_mutex);
    if (m_published.handle == nullptr) {
        return;
    }
    WaitForSingleObject(m_published.handle, 0);
    CloseThreadHandle();
    m_current = 0;
    WakeLoop();
}

bool ThreadLife::HasEnded() {
    const platform::Lock lock(m_mutex);
    return m_stopped && m_published.handle == nullptr;
}

ThreadLife::Run ThreadLife::Enter() {
    const platform::Lock lock(m_mutex);
    Run run;
    run.number = ++m_entered;
    TAGPORT_CHECK(m_entered <= m_created);
    return run;
}

bool ThreadLife::Arm(Run& run, OVERLAPPED& overlapped) {
    const platform::Lock lock(m_mutex);
    run.event = UniqueHandle(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    if (!run.event) {
        m_broken = m_broken || Current(run);
        return false;
    }
    overlapped = *m_published.overlapped;
    overlapped.hEvent = run.event.get();
    // A run that is no longer the current one must not hide the event of the one that is.
    if (Current(run)) {
        *m_published.event = run.event.get();
        m_published.overlapped->hEvent = run.event.get();
    }
    return true;
}

void ThreadLife::BeginPass(Run& run) {
    const platform::Lock lock(m_mutex);
    run.reasonsSeen = m_reasons;
}

bool ThreadLife::IsCurrent(const Run& run) {
    const platform::Lock lock(m_mutex);
    return Current(run);
}

bool ThreadLife::ShouldRun(const Run& run) {
    const platform::Lock lock(m_mutex);
    return MayRun(run);
}

bool ThreadLife::IsHeld(const Run& run) {
    const platform::Lock lock(m_mutex);
    return m_isHeld() && Current(run);
}

void ThreadLife::NoteFailure(const Run& run) {
    const platform::Lock lock(m_mutex);
    if (run.reasonsSeen == m_reasons) {
        AddReason();
    }
}

bool ThreadLife::TryEnd(Run& run) {
    const platform::Lock lock(m_mutex);
    const bool current = Current(run);
    if (current && ((MayRun(run) && m_startFollows) || m_isHeld())) {
        return false;
    }
    if (current) {
        CloseThreadHandle();
        m_stopped = true;
    }
    if (run.event) {
        if (*m_published.event == run.event.get()) {
            *m_published.event = nullptr;
            m_published.overlapped->hEvent = nullptr;
        }
        run.event.Reset();
    }
    return true;
}

void ThreadLife::AddReason() {
    ++m_reasons;
    m_startFollows = false;
}

void ThreadLife::CloseThreadHandle() {
    TAGPORT_CHECK(m_published.handle != nullptr);
    CloseHandle(m_published.handle);
    m_published.handle = nullptr;
    m_broken = false;
}

void ThreadLife::WakeLoop() {
    if (m_published.event != nullptr && *m_published.event != nullptr) {
        SetEvent(*m_published.event);
    }
}

bool ThreadLife::Current(const Run& run) const {
    return run.number == m_current;
}

bool ThreadLife::MayRun(const Run& run) const {
    return m_published.running && !m_stopped && Current(run);
}
