// What the program needs from the operating system itself, outside Windows.
#include <fcntl.h>
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
    std::signal(SIGPIPE, SIG_IGN);
    // The next file that is opened would take the number of a closed stream and receive its output.
    // The number is taken here, for the wrong direction, so that using the stream fails.
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) == -1) {
            static_cast<void>(open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY));
        }
    }
}

void UseConfigDirectory(const std::filesystem::path& directory) {
    hosted::SetCurrentDirectoryForTests(hosted::WidePath(directory.string()));
}

}  // namespace lab
