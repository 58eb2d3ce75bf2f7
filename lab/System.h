// What the program asks of the operating system, beside its streams (Terminal.h) and the log
// (LogSink.h). SystemEmulated.cpp or SystemWindows.cpp implements it; CMake chooses.
#pragma once

#include <filesystem>

namespace lab {

/// True on Windows: a run without --route uses the PC's own devices, and time is always real.
bool HasOwnDevices();

/// The directory of the running program, as an absolute path. Empty when the system cannot say.
std::filesystem::path ProgramDirectory();

}  // namespace lab
