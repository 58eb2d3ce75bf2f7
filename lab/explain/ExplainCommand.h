// tagport-lab explain: says in plain words what a log of the library shows.
#pragma once

#include <string>
#include <vector>

namespace lab {

struct ExplainOptions {
    std::vector<std::string> logs;  ///< in their order; "-": standard input
    bool json = false;
    bool failures = false;  ///< only what failed, and the summary
};

/// Returns the exit status. Memory does not grow with the logs. As text the story is written while
/// they are read, and the summary at its end; as JSON the summary comes first, so regular files are
/// read twice, and of a pipe's story only the beginning and the end are kept. Throws WrongCall and
/// SystemFailure.
int Explain(const ExplainOptions& options);

}  // namespace lab
