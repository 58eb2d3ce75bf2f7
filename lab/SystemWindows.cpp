// What the program asks of the system itself, on Windows.
#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <filesystem>

#include "lab/ConfigCheck.h"
#include "lab/Terminal.h"

namespace lab {

bool OutputIsTerminal() {
    return _isatty(_fileno(stdout)) != 0;
}

void UseBinaryStreams() {
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
}

void UseConfigDirectory(const std::string& directory) {
    if (!directory.empty()) {
        std::filesystem::current_path(directory);
    }
}

}  // namespace lab
