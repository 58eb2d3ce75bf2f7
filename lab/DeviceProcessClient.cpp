// A child process with two pipes.
#include "lab/DeviceProcessClient.h"

#include <algorithm>
#include <array>
#include <thread>
#include <utility>

#include "lab/Failure.h"
#include "platform/platform.h"

namespace lab {

namespace {

constexpr wchar_t kProgram[] = L"tagport-devices.exe";
constexpr char kDone[] = "ok";
constexpr char kRefused[] = "error ";

std::wstring ProgramPath() {
    constexpr std::size_t kLongestPath = 32'768;
    std::wstring path(kLongestPath, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), kLongestPath));
    return path.substr(0, path.rfind(L'\\') + 1) + kProgram;
}

bool StartsWith(const std::string& line, const char* beginning) {
    return line.rfind(beginning, 0) == 0;
}

}  // namespace

DeviceProcess::DeviceProcess(std::function<void(const std::string& line)> report)
    : m_report(std::move(report)) {
    Start();
    std::thread([this] { Listen(); }).detach();  // like the PC, never destroyed
}

void DeviceProcess::Start() {
    SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
    HANDLE childInput = nullptr;
    HANDLE childOutput = nullptr;
    CreatePipe(&childInput, &m_input, &inherited, 0);
    CreatePipe(&m_output, &childOutput, &inherited, 0);
    // The process sees the end of its input only if no copy of this end is in it.
    SetHandleInformation(m_input, HANDLE_FLAG_INHERIT, 0);
    SetHandleInformation(m_output, HANDLE_FLAG_INHERIT, 0);

    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = childInput;
    startup.hStdOutput = childOutput;
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION process = {};
    const std::wstring path = ProgramPath();
    std::wstring commandLine = L"\"" + path + L"\"";
    const BOOL started = CreateProcessW(path.c_str(), commandLine.data(), nullptr, nullptr, TRUE, 0,
                                        nullptr, nullptr, &startup, &process);
    const DWORD error = GetLastError();
    CloseHandle(childInput);
    CloseHandle(childOutput);
    FailIf(!started,
           "tagport-devices.exe, which holds the simulated devices, cannot be started beside this "
           "program: error " +
               std::to_string(error));
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
}

void DeviceProcess::Listen() {
    std::string text;
    std::array<char, 4096> buffer{};
    DWORD count = 0;
    while (ReadFile(m_output, buffer.data(), static_cast<DWORD>(buffer.size()), &count, nullptr) &&
           count > 0) {
        text.append(buffer.data(), count);
        for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n')) {
            std::string line = text.substr(0, end);
            text.erase(0, end + 1);
            if (!line.empty() && line.back() == '\r') {
                line.pop_back();
            }
            if (line == kDone || StartsWith(line, "ok ") || StartsWith(line, kRefused)) {
                const std::lock_guard<std::mutex> guard(m_mutex);
                m_replies.push_back(std::move(line));
                m_changed.notify_all();
            } else {
                m_report(line);
            }
        }
    }
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_ended = true;
    m_changed.notify_all();
}

std::string DeviceProcess::Ask(const std::string& command) {
    const std::lock_guard<std::mutex> one(m_asking);
    const std::string line = command + "\n";
    DWORD count = 0;
    WriteFile(m_input, line.data(), static_cast<DWORD>(line.size()), &count, nullptr);
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_ended || !m_replies.empty(); });
    FailIf(m_replies.empty(), "tagport-devices.exe ended before it answered \"" + command + "\"");
    const std::string reply = std::move(m_replies.front());
    m_replies.pop_front();
    RefuseIf(StartsWith(reply, kRefused),
             reply.substr(std::min(reply.size(), sizeof(kRefused) - 1)));
    return reply == kDone ? std::string() : reply.substr(sizeof(kDone));
}

}  // namespace lab
