// The process that holds the simulated devices of a Windows PC, as the lab uses it. Windows alone.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>

namespace lab {

/// Starts tagport-devices.exe from the lab's own directory. It ends with this process at the
/// latest.
class DeviceProcess {
  public:
    /// `report` gets the lines that are no reply, on a thread of its own. Throws Failure when the
    /// process cannot be started.
    explicit DeviceProcess(std::function<void(const std::string& line)> report);
    DeviceProcess(const DeviceProcess&) = delete;
    DeviceProcess& operator=(const DeviceProcess&) = delete;

    /// Sends one command and waits for its reply, which it returns without "ok". Throws WrongCall
    /// with the reason of a refused command, and Failure when the process has ended. Any thread.
    std::string Ask(const std::string& command);

  private:
    void Start();
    void Listen();

    std::function<void(const std::string& line)> m_report;
    void* m_input = nullptr;   // ends of pipes: the process's standard input
    void* m_output = nullptr;  // and output
    std::mutex m_asking;       // one command at a time
    std::mutex m_mutex;        // for what follows
    std::condition_variable m_changed;
    std::deque<std::string> m_replies;
    bool m_ended = false;
};

}  // namespace lab
