#include "lab/Recorder.h"

#include <array>
#include <utility>

namespace lab {

namespace {

struct Clue {
    const char* text;
    const char* thread;
};
// Lines that one thread alone writes.
constexpr std::array<Clue, 10> kClues{{
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
}};

Json Stamped(double milliseconds, const std::string& thread, Json fields) {
    Json object;
    object["t"] = milliseconds;
    object["thread"] = thread;
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
    Json object =
        Stamped(milliseconds, thread.name == nullptr ? "" : thread.name, std::move(fields));
    if (thread.name == nullptr) {
        thread.waiting.push_back(std::move(object));
    } else {
        m_output(object);
    }
}

void Recorder::AddNamed(const char* name, double milliseconds, Json fields) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (!m_finished) {
        m_output(Stamped(milliseconds, name, std::move(fields)));
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
    for (Json& object : thread.waiting) {
        object["thread"] = name;
        m_output(object);
    }
    thread.waiting.clear();
}

void Recorder::NameThread(ThreadKey key, const char* name) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (!m_finished) {
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

void Recorder::NameThreadByLogLine(ThreadKey key, const std::string& line) {
    for (const Clue& clue : kClues) {
        if (line.rfind(clue.text, 0) == 0) {
            NameThread(key, clue.thread);
            return;
        }
    }
}

void Recorder::Finish() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    for (auto& [key, thread] : m_threads) {
        for (Json& object : thread.waiting) {
            object["thread"] = "thread " + std::to_string(key);
            m_output(object);
        }
        thread.waiting.clear();
    }
    m_finished = true;
}

std::string Narrow(const std::wstring& line) {
    std::string text;
    for (const wchar_t character : line) {
        // The library's lines are ASCII; whatever else comes is marked, not guessed at.
        text += character > 0 && character < 0x80 ? static_cast<char>(character) : '?';
    }
    return text;
}

}  // namespace lab
