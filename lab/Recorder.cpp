// Names the threads of a run and keeps the objects of those that have no name yet.
#include "lab/Recorder.h"

#include <array>
#include <cstdio>
#include <utility>

namespace lab {

namespace {

// A line of the log that only one thread writes, by its beginning.
constexpr std::pair<const char*, const char*> kThreadLines[] = {
    {"NFC Wait For Kernel Interrupt...", kInterruptThread},
    {"NFC DeviceIoControl Failed: ", kInterruptThread},
    {"NFC WaitOnInterruptLoop return", kInterruptThread},
    {"NFC error creating overlapped event for int thread", kInterruptThread},
    {"NFC_begin wait notify", kDeferThread},
    {"NFC_DeferCallThread return", kDeferThread},
    {"NFC Wait For KeyboardData", kKeyboardThread},
    {"NFC ReadKeyboardData", kKeyboardThread},
    {"NFC error creating overlapped event for ReadKeyboardDataThread", kKeyboardThread},
    {"[NFC] start size:", kBleThread},
    {"LocalWriteRand ", kNumberThread},
};

Json WithTimeAndThread(double milliseconds, const std::string& thread, Json fields) {
    Json object{{"t", milliseconds}, {"thread", thread}};
    object.update(fields);
    return object;
}

}  // namespace

void Recorder::Add(ThreadKey key, double milliseconds, Json fields) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_finished) {
        return;
    }
    Thread& thread = m_threads[key];
    thread.kept.push_back(WithTimeAndThread(milliseconds, "", std::move(fields)));
    if (thread.name != nullptr) {
        PassOn(thread, thread.name);
    }
}

void Recorder::AddNamed(const char* name, double milliseconds, Json fields) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (!m_finished) {
        m_output(WithTimeAndThread(milliseconds, name, std::move(fields)));
    }
}

void Recorder::Name(Thread& thread, const char* name) {
    if (thread.name != nullptr) {
        return;
    }
    thread.name = name;
    if (thread.routine != nullptr) {
        m_routines[thread.routine] = name;
    }
    PassOn(thread, name);
}

void Recorder::PassOn(Thread& thread, const std::string& name) {
    for (Json& object : thread.kept) {
        object["thread"] = name;
        m_output(object);
    }
    thread.kept.clear();
}

void Recorder::NameThread(ThreadKey key, const char* name, bool isOnlyOne) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (!m_finished) {
        m_threads[key].routine = isOnlyOne ? nullptr : m_threads[key].routine;
        Name(m_threads[key], name);
    }
}

void Recorder::ThreadStarted(ThreadKey key, const void* routine) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    Thread& thread = m_threads[key];
    thread.routine = routine;
    const auto known = m_routines.find(routine);
    if (known != m_routines.end()) {
        Name(thread, known->second);
    }
}

void Recorder::AddLogLine(ThreadKey thread, double milliseconds, int level,
                          const std::wstring& line) {
    const std::string text = Narrow(line);
    for (const auto& [beginning, name] : kThreadLines) {
        if (text.rfind(beginning, 0) == 0) {
            NameThread(thread, name);
        }
    }
    Add(thread, milliseconds, {{"kind", "log"}, {"level", level}, {"line", text}});
}

void Recorder::Finish() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    for (auto& [key, thread] : m_threads) {
        PassOn(thread, "thread " + std::to_string(key));
    }
    m_finished = true;
}

std::string Narrow(const std::wstring& line) {
    std::string text;
    for (const wchar_t character : line) {
        const auto code = static_cast<std::uint32_t>(character);
        if (code < 0x80) {
            text += static_cast<char>(character);
            continue;
        }
        std::array<char, 16> escape{};
        std::snprintf(escape.data(), escape.size(), "\\u%04X", static_cast<unsigned>(code));
        text += escape.data();
    }
    return text;
}

}  // namespace lab
