// What the program asks of the system itself, outside Windows.
#include <unistd.h>

#include <filesystem>

#include "lab/ConfigCheck.h"
#include "lab/Terminal.h"
#include "platform/hosted/Kernel.h"

namespace lab {

bool OutputIsTerminal() {
    return isatty(STDOUT_FILENO) == 1;
}

void UseBinaryStreams() {}

void UseConfigDirectory(const std::string& directory) {
    if (!directory.empty()) {
        hosted::SetCurrentDirectoryForTests(
            hosted::WidePath(std::filesystem::absolute(directory).string()));
    }
}

}  // namespace lab
