// Stand-in for the platform's logger: hands each line to the sink that was chosen.
#include "platform/TraceLog.h"

namespace {

// Chosen by the host before it starts anything, read by every thread that logs.
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
