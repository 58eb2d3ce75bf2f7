// Looks for the sink when the program runs: linked to it, the program would not load beside the
// PC's own logger.
#include "lab/LogSink.h"
#include "platform/platform.h"

namespace lab {

bool SetLogSink(TraceLogger::Sink sink, void* context) {
    using SetSink = void (*)(TraceLogger::Sink, void*);
    const HMODULE logger = LoadLibraryW(L"TraceLog.dll");  // the library may not be loaded so far
    void* const found = logger == nullptr
                            ? nullptr
                            : reinterpret_cast<void*>(GetProcAddress(logger, kSetSinkOfStandIn));
    if (found == nullptr) {
        return false;
    }
    reinterpret_cast<SetSink>(found)(sink, context);
    return true;
}

}  // namespace lab
