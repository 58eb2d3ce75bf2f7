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

namespace {

constexpr std::size_t kLongestPath = 32768;

}  // namespace

bool OutputIsTerminal() {
    return _isatty(_fileno(stdout)) != 0;
}

bool ErrorIsTerminal() {
    return _isatty(_fileno(stderr)) != 0;
}

std::size_t ErrorWidth() {
    CONSOLE_SCREEN_BUFFER_INFO screen{};
    const bool known =
        GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &screen) != FALSE &&
        screen.dwSize.X > 0;
    return known ? static_cast<std::size_t>(screen.dwSize.X) : kUsualWidth;
}

void PrepareStreams() {
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
}

bool HasOwnDevices() {
    return true;
}

std::filesystem::path ProgramDirectory() {
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

}  // namespace lab
