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

/// Returns the exit status. Writes the story while the logs are read, and the summary at its end;
/// memory does not grow with the logs. Throws WrongCall and SystemFailure.
int Explain(const ExplainOptions& options);

}  // namespace lab
