// Stand-in for the platform's logger: passes each line to the sink.
#include "platform/services/TraceLog.h"

#include <mutex>

namespace {

struct Target {
    TraceLogger::Sink sink = nullptr;
    void* context = nullptr;
};

std::mutex g_mutex;  // over the target; not held while the sink runs
Target g_target;

Target CurrentTarget() {
    const std::lock_guard<std::mutex> guard(g_mutex);
    return g_target;
}

}  // namespace

TraceLogger* TraceLogger::GetInstance() {
    static TraceLogger logger;
    return &logger;
}

void TraceLogger::Log(LOG_MESSAGE_LEVEL level, std::wstringstream& stream) {
    const Target target = CurrentTarget();
    if (target.sink != nullptr) {
        target.sink(static_cast<int>(level), stream.str(), target.context);
    }
}

void TraceLogSetSink(TraceLogger::Sink sink, void* context) {
    TraceLogger::SetSink(sink, context);
}

void TraceLogger::SetSink(Sink sink, void* context) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    g_target = {sink, context};
}
