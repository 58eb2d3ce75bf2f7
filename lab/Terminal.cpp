// Standard output and standard error. Nothing else of the program writes to them, except the report
// of a run that can make no progress.
#include "lab/Terminal.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "lab/Failure.h"
#include "lab/Words.h"

namespace lab {

Style Style::ForOutput() {
    const char* const terminal = std::getenv("TERM");
    return Style(OutputIsTerminal() && std::getenv("NO_COLOR") == nullptr &&
                 (terminal == nullptr || std::strcmp(terminal, "dumb") != 0));
}

std::string Style::Mark(const char* code, const std::string& text) const {
    return m_colours ? std::string("\033[") + code + "m" + text + "\033[0m" : text;
}

void WriteOutput(std::string_view bytes) {
    // Held until the process ends after a failure, so that it is reported once.
    static std::mutex mutex;
    const std::lock_guard<std::mutex> guard(mutex);
    if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size() &&
        std::fflush(stdout) == 0) {
        return;
    }
    const std::string cause = errno == EBADF ? "it is closed" : std::strerror(errno);
    PrintError("standard output: cannot be written: " + cause);
    // The caller may be a thread of the library, which no exception may reach.
    std::_Exit(kExitFailed);
}

void PrintError(std::string_view text) {
    WriteError("tagport-lab: " + Printable(text) + "\n");
}

void WriteError(std::string_view bytes) {
    std::fwrite(bytes.data(), 1, bytes.size(), stderr);
    std::fflush(stderr);
}

}  // namespace lab
