// Collects what happens, on whatever thread, and gives each object to the output under its
// thread's right name. The library's threads are unnamed; a thread's objects wait here until the
// first deed that tells which one it is, so that the order of each thread is kept.
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

constexpr char kHostThread[] = "host";
constexpr char kInterruptThread[] = "interrupt";
constexpr char kDeferThread[] = "defer";
constexpr char kKeyboardThread[] = "keyboard";
constexpr char kNumberThread[] = "number";
constexpr char kBleThread[] = "ble";

class Recorder {
  public:
    /// `output` is called under the recorder's lock, one object at a time.
    using Output = std::function<void(const Json& object)>;
    explicit Recorder(Output output) : m_output(std::move(output)) {}

    // Each may be called on any thread; none calls back into the layer.

    /// `fields` begins with "kind"; time and thread are put in front.
    void Add(ThreadKey thread, double milliseconds, Json fields);

    /// Under a fixed name, whatever thread it is.
    void AddNamed(const char* name, double milliseconds, Json fields);

    /// Takes the first name that a thread is given; later ones are ignored. Every thread with the
    /// same routine, null for none, has the same name from then on.
    void NameThread(ThreadKey thread, const char* name);
    void ThreadStarted(ThreadKey thread, const void* routine);

    /// A line of the log tells the thread too, where it had no other deed.
    void NameThreadByLogLine(ThreadKey thread, const std::string& line);

    /// Gives out what still waits; a thread that never told is called "thread N". What comes later
    /// is dropped.
    void Finish();

  private:
    struct Thread {
        const char* name = nullptr;
        const void* routine = nullptr;
        std::vector<Json> waiting;
    };

    void Name(Thread& thread, const char* name);

    std::mutex m_mutex;
    Output m_output;
    std::map<ThreadKey, Thread> m_threads;
    std::map<const void*, const char*> m_routines;
    bool m_finished = false;
};

/// A line of the log as 8-bit text.
std::string Narrow(const std::wstring& line);

}  // namespace lab
