// Runs commands of the shell in a directory of the tests' own, with links to config/ and lab/.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

struct Outcome {
    int status = -1;
    std::string text;  // of standard output, and of the descriptor 3
};

inline Outcome RunShell(const std::string& command) {
    Outcome outcome;
    std::FILE* pipe = popen(("exec 3>&1; cd " LAB_SCRATCH "; " + command).c_str(), "r");
    for (int byte = 0; (byte = std::fgetc(pipe)) != EOF;) {
        outcome.text += static_cast<char>(byte);
    }
    outcome.status = WEXITSTATUS(pclose(pipe));
    return outcome;
}
