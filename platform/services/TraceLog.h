// The platform's logger, "TraceLog.dll": a level and a wide text. The library uses GetInstance and
// Log. The sink exists only in the stand-in that this project builds, for hosts and tests.
#pragma once

#include <sstream>
#include <string>

#include "platform/services/tracelog_export.h"

/// Levels by their numbers; only these two are in use.
enum LOG_MESSAGE_LEVEL : int {
    LOG_MESSAGE_LEVEL_WARN = 3,
    LOG_MESSAGE_LEVEL_ERROR = 4,
};

class TRACELOG_EXPORT TraceLogger {
  public:
    /// Receives every line, on the thread that logs, and from several threads at once. Must not
    /// call the library.
    using Sink = void (*)(int level, const std::wstring& line, void* context);

    static TraceLogger* GetInstance();

    /// Passes the stream's text to the sink. Without one the line is dropped. Any thread.
    void Log(LOG_MESSAGE_LEVEL level, std::wstringstream& stream);

    /// Chooses the sink for the lines that come after; null for none. Any thread. A call of the
    /// former sink that has begun goes on, so its context must not go with this call.
    static void SetSink(Sink sink, void* context);
};

/// The same by a name that a program can look up when it runs: not to be found in the platform's
/// logger.
extern "C" TRACELOG_EXPORT void TraceLogSetSink(TraceLogger::Sink sink, void* context);
constexpr char kSetSinkOfStandIn[] = "TraceLogSetSink";
