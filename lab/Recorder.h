// Collects the objects of a run from all threads and passes each one to the output with the name of
// its thread. The library's threads have no names: the objects of a thread are kept here until the
// thread does something that identifies it. The order of the objects of one thread is kept.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace lab {

using Json = nlohmann::ordered_json;
using ThreadKey = std::uint64_t;

/// Of the result of an operation: it is true, or 0.
inline bool Worked(const Json& result) {
    return result == true || result == 0;
}

constexpr char kHostThread[] = "host";
constexpr char kInterruptThread[] = "interrupt";
constexpr char kDeferThread[] = "defer";
constexpr char kKeyboardThread[] = "keyboard";
constexpr char kNumberThread[] = "number";
constexpr char kBleThread[] = "ble";

class Recorder {
  public:
    /// Receives one object at a time, under the recorder's lock.
    using Output = std::function<void(const Json& object)>;
    explicit Recorder(Output output) : m_output(std::move(output)) {}

    // Each function may be called on any thread. None calls the platform layer.

    /// `fields` begins with "kind". Time and thread are added before it.
    void Add(ThreadKey thread, double milliseconds, Json fields);

    /// Adds an object under a fixed thread name, whatever the calling thread is.
    void AddNamed(const char* name, double milliseconds, Json fields);

    /// Names a thread; later names for it are ignored. Threads that start later with the same
    /// routine get the same name, unless it is the only one with that name.
    void NameThread(ThreadKey thread, const char* name, bool isOnlyOne = false);
    void ThreadStarted(ThreadKey thread, const void* routine);

    /// Adds a line of the log.
    void AddLogLine(ThreadKey thread, double milliseconds, int level, const std::wstring& line);

    /// Passes on what is still kept; a thread without a name is called "thread N". Objects that are
    /// added later are dropped.
    void Finish();

  private:
    struct Thread {
        const char* name = nullptr;
        const void* routine = nullptr;
        std::vector<Json> kept;  // until the thread has a name
    };

    void Name(Thread& thread, const char* name);
    void PassOn(Thread& thread, const std::string& name);

    std::mutex m_mutex;
    Output m_output;
    std::map<ThreadKey, Thread> m_threads;
    std::map<const void*, const char*> m_routines;
    bool m_finished = false;
};

/// A line of the log as 8-bit text. Characters above 127 are shown as \uNNNN.
std::string Narrow(const std::wstring& line);

}  // namespace lab
