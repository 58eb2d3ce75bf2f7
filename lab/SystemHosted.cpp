// What the program needs from the operating system itself, outside Windows.
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "lab/ConfigCheck.h"
#include "lab/LogSink.h"
#include "lab/Terminal.h"
#include "platform/hosted/Kernel.h"

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
    std::signal(SIGPIPE, SIG_IGN);  // writing to a closed pipe fails instead
}

bool SetLogSink(TraceLogger::Sink sink, void* context) {
    TraceLogger::SetSink(sink, context);
    return true;
}

void UseConfigDirectory(const std::filesystem::path& directory) {
    hosted::SetCurrentDirectoryForTests(hosted::WidePath(directory.string()));
}

}  // namespace lab
