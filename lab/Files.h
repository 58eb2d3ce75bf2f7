// Whole files, read and written. Every failure names the option that the file belongs to, the path
// and the cause.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace lab {

constexpr std::size_t kInputLimit = std::size_t{1} << 20;  ///< bytes of any file that is read
constexpr char kStandardInput[] = "standard input";        ///< how messages name "-"

/// Why `path` cannot be read as a regular file of at most kInputLimit bytes. Never blocks.
std::optional<std::string> FileProblem(const std::filesystem::path& path);

/// Reads a regular file, or standard input for "-". Messages begin with `option`, which may be
/// empty, and the name. WrongCall when the file cannot be opened or is longer than kInputLimit,
/// SystemFailure when reading fails.
std::string ReadInput(const std::string& option, const std::string& name);

/// Throws WrongCall for a device or a pipe, and when it is clear before any work that WriteFile
/// would fail. Never blocks; leaves no file.
void CheckReplaceable(const std::string& place, const std::filesystem::path& path);

/// Writes a file completely or not at all: a regular file is replaced after everything is written.
/// Devices and pipes are written directly. `place` begins each message. WrongCall when the file
/// cannot be created, SystemFailure when writing fails.
void WriteFile(const std::string& place, const std::filesystem::path& path, std::string_view bytes);

}  // namespace lab
