// A TraceLog.dll as another project could make it, with classes and members of its own. It exports
// what the library calls and nothing else, and prints each line. It is slow.
#include <chrono>
#include <cstdio>
#include <mutex>
#include <sstream>
#include <thread>

enum LOG_MESSAGE_LEVEL { kVerbose = 1, kNotice, kWarning, kFault, kFatal };

class TraceLogger {
  public:
    virtual ~TraceLogger() = default;
    __declspec(dllexport) static TraceLogger* GetInstance();
    __declspec(dllexport) void Log(LOG_MESSAGE_LEVEL level, std::wstringstream& stream) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        std::printf("line %u, level %d: %ls\n", ++m_lines, static_cast<int>(level),
                    stream.str().c_str());
    }

  private:
    std::mutex m_mutex;
    unsigned m_lines = 0;
};

TraceLogger* TraceLogger::GetInstance() {
    static TraceLogger logger;
    return &logger;
}
