// The log front ends as empty functions, for benchmarks of code that logs.
#include "diagnostics/Log.h"

void LogWarnFun(const char* /*format*/, ...) {}
void LogErrorFun(const char* /*format*/, ...) {}
void LogWithOrigin(LOG_MESSAGE_LEVEL /*level*/, const char* /*origin*/, const char* /*text*/) {}
