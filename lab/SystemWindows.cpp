// What the program needs from the operating system itself, on Windows.
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

void PrepareStreams() {
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
}

void UseConfigDirectory(const std::filesystem::path& directory) {
    std::filesystem::current_path(directory);
}

}  // namespace lab
