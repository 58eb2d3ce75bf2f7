// tagport-lab explain: says in plain words what a log of the library shows.
#pragma once

#include <string>

namespace lab {

struct ExplainOptions {
    std::string log;  ///< "-": standard input
    bool json = false;
};

/// Returns the exit status. Memory does not grow with the log: a regular file is read twice, first
/// for the summary and then for the story; of a pipe's story only the beginning and the end are
/// kept until the summary is complete. Throws WrongCall and SystemFailure.
int Explain(const ExplainOptions& options);

}  // namespace lab
