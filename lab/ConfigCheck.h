// Checks config/NfcUri.ini the way the library reads it and names the exact problem: the library
// itself only reports that it could not fill the message.
#pragma once

#include <filesystem>
#include <string>

namespace lab {

/// Checks `directory`/config/NfcUri.ini (empty: the current directory) and makes that directory the
/// library's current one. On Windows it becomes the process's current directory, so
/// relative names must be resolved before. `pcType` is 2, 5 or 8. Prints a warning when a message
/// can be filled but its number will not be read back. WrongCall when no message can be filled.
void UseConfiguration(const std::string& directory, int pcType);

/// False when `directory` (empty: the current one) has no config/NfcUri.ini at all.
bool HasConfiguration(const std::string& directory);

/// The directory of the configuration that is installed with the program; empty when there is none.
std::string InstalledConfiguration();

/// Makes this absolute directory the library's current one. Part of UseConfiguration.
void UseConfigDirectory(const std::filesystem::path& directory);

}  // namespace lab
