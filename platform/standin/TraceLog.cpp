// Stand-in for the platform's logger: passes each line to the sink.
#include "platform/TraceLog.h"

namespace {

// Set by the host before its first thread starts, read by every thread that logs.
TraceLogger::Sink g_sink = nullptr;
void* g_sinkContext = nullptr;

}  // namespace

TraceLogger* TraceLogger::GetInstance() {
    static TraceLogger logger;
    return &logger;
}

void TraceLogger::Log(LOG_MESSAGE_LEVEL level, std::wstringstream& stream) {
    if (g_sink != nullptr) {
        g_sink(static_cast<int>(level), stream.str(), g_sinkContext);
    }
}

void TraceLogger::SetSink(Sink sink, void* context) {
    g_sinkContext = context;
    g_sink = sink;
}
