// What the program asks of the operating system, beside its streams (Terminal.h).
// SystemEmulated.cpp or SystemWindows.cpp implements it; CMake chooses.
#pragma once

#include <cstddef>
#include <cstdio>
#include <filesystem>

#include "platform/services/TraceLog.h"

namespace lab {

/// True on Windows: a run without --route uses the PC's own devices, and time is always real.
bool HasOwnDevices();

/// The directory of the running program, as an absolute path. Empty when the system cannot say.
std::filesystem::path ProgramDirectory();

/// Waits until a pipe has something to read, or has ended. False after that time without any. True
/// for everything else than a pipe.
bool HasInput(std::FILE* file, int milliseconds);

/// Reads what there is, at most `size` bytes; waits for the first one. 0 at the end, -1 for an
/// error. For a file that is not buffered.
std::ptrdiff_t ReadAvailable(std::FILE* file, char* bytes, std::size_t size);

/// Chooses the sink of the stand-in logger; null for none. False on a Windows PC with a logger of
/// its own, which takes the log and has no sink.
bool SetLogSink(TraceLogger::Sink sink, void* context);

}  // namespace lab
