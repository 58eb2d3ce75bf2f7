// What the program needs from the operating system itself, on Windows.
#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "lab/ConfigCheck.h"
#include "lab/System.h"
#include "lab/Terminal.h"

namespace lab {

bool OutputIsTerminal() {
    return _isatty(_fileno(stdout)) != 0;
}

std::size_t OutputWidth() {
    CONSOLE_SCREEN_BUFFER_INFO screen{};
    const bool known =
        GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &screen) != FALSE &&
        screen.dwSize.X > 0;
    return known ? static_cast<std::size_t>(screen.dwSize.X) : kUsualWidth;
}

bool HasInput(std::FILE* file, int milliseconds) {
    constexpr int kStepMs = 20;
    const auto pipe = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(file)));
    for (int waited = 0;; waited += kStepMs) {
        DWORD size = 0;
        if (PeekNamedPipe(pipe, nullptr, 0, nullptr, &size, nullptr) == FALSE || size > 0) {
            return true;
        }
        if (waited >= milliseconds) {
            return false;
        }
        Sleep(kStepMs);
    }
}

std::ptrdiff_t ReadAvailable(std::FILE* file, char* bytes, std::size_t size) {
    return _read(_fileno(file), bytes, static_cast<unsigned>(size));
}

void PrepareStreams() {
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
}

bool HasOwnDevices() {
    return true;
}

std::filesystem::path ProgramDirectory() {
    constexpr std::size_t kLongestPath = 32768;
    std::wstring name(kLongestPath, L'\0');
    const DWORD size = GetModuleFileNameW(nullptr, name.data(), static_cast<DWORD>(name.size()));
    if (size == 0 || size == name.size()) {
        return {};
    }
    name.resize(size);
    return std::filesystem::path(name).parent_path();
}

void UseConfigDirectory(const std::filesystem::path& directory) {
    std::filesystem::current_path(directory);
}

// Looks for the sink when the program runs: linked to it, the program would not load beside the
// PC's own logger.
bool SetLogSink(TraceLogger::Sink sink, void* context) {
    using SetSink = void (*)(TraceLogger::Sink, void*);
    const HMODULE logger = LoadLibraryW(L"TraceLog.dll");  // the library may not be loaded so far
    void* const found = logger == nullptr
                            ? nullptr
                            : reinterpret_cast<void*>(GetProcAddress(logger, kSetSinkOfStandIn));
    if (found == nullptr) {
        return false;
    }
    reinterpret_cast<SetSink>(found)(sink, context);
    return true;
}

}  // namespace lab
