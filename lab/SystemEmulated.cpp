// What the program needs from the operating system itself, outside Windows.
#include <sys/auxv.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <system_error>

#include "lab/ConfigCheck.h"
#include "lab/LogSink.h"
#include "lab/System.h"
#include "lab/Terminal.h"
#include "platform/emulation/Kernel.h"

namespace lab {

bool OutputIsTerminal() {
    return isatty(STDOUT_FILENO) == 1;
}

bool ErrorIsTerminal() {
    return isatty(STDERR_FILENO) == 1;
}

std::size_t ErrorWidth() {
    winsize size{};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : kUsualWidth;
}

void PrepareStreams() {
    // Writing to a closed pipe, or beyond the limit of a file's size, fails instead.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

bool HasOwnDevices() {
    return false;
}

std::filesystem::path ProgramDirectory() {
    std::error_code error;
    // Not /proc/self/exe: a bare container may have no /proc.
    const auto* const name = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
    const auto program = std::filesystem::canonical(name == nullptr ? "" : name, error);
    return error ? std::filesystem::path() : program.parent_path();
}

bool SetLogSink(TraceLogger::Sink sink, void* context) {
    TraceLogger::SetSink(sink, context);
    return true;
}

void UseConfigDirectory(const std::filesystem::path& directory) {
    emulation::SetCurrentDirectoryForTests(emulation::WidePath(directory.string()));
}

}  // namespace lab
