// Looks at config/NfcUri.ini the way the library will, and says in one line what is wrong with it:
// the library itself only says that it could not fill the message.
#pragma once

#include <optional>
#include <string>

namespace lab {

/// Makes `directory` the current directory that the library sees; empty: leaves it. On Windows it
/// becomes the process's own, so relative names are to be resolved before.
void UseConfigDirectory(const std::string& directory);

struct ConfigReport {
    std::optional<std::string> error;    ///< a message cannot be filled from this file
    std::optional<std::string> warning;  ///< it can, and the number will not be read back
};

/// `pcType` is 2, 5 or 8; an empty directory means the current one. Before UseConfigDirectory.
/// WrongCall when there is no such directory.
ConfigReport CheckConfig(const std::string& directory, int pcType);

}  // namespace lab
