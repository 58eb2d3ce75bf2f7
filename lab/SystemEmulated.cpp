// What the program needs from the operating system itself, outside Windows.
#include <poll.h>
#include <sys/auxv.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <system_error>

#include "lab/ConfigCheck.h"
#include "lab/System.h"
#include "lab/Terminal.h"
#include "platform/emulation/Kernel.h"

namespace lab {

bool OutputIsTerminal() {
    return isatty(STDOUT_FILENO) == 1;
}

std::size_t OutputWidth() {
    winsize size{};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : kUsualWidth;
}

bool HasInput(std::FILE* file, int milliseconds) {
    pollfd waited{fileno(file), POLLIN, 0};
    return poll(&waited, 1, milliseconds) != 0;
}

std::ptrdiff_t ReadAvailable(std::FILE* file, char* bytes, std::size_t size) {
    for (;;) {
        const ssize_t done = read(fileno(file), bytes, size);
        if (done >= 0 || errno != EINTR) {
            return done;
        }
    }
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
