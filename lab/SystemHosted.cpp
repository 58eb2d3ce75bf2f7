// What the program needs from the operating system itself, outside Windows.
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "lab/ConfigCheck.h"
#include "lab/Terminal.h"
#include "platform/hosted/Kernel.h"

namespace lab {

bool OutputIsTerminal() {
    return isatty(STDOUT_FILENO) == 1;
}

void PrepareStreams() {
    std::signal(SIGPIPE, SIG_IGN);  // writing to a closed pipe fails instead
}

void UseConfigDirectory(const std::filesystem::path& directory) {
    hosted::SetCurrentDirectoryForTests(hosted::WidePath(directory.string()));
}

}  // namespace lab
