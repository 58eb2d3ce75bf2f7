// The way to the library's log.
#pragma once

#include "platform/services/TraceLog.h"

namespace lab {

/// Chooses the sink of the stand-in logger; null for none. False on a Windows PC with a logger of
/// its own, which takes the log and has no sink.
bool SetLogSink(TraceLogger::Sink sink, void* context);

}  // namespace lab
