#include "diagnostics/Log.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <sstream>

namespace {

// Bytes that a text may take, its terminating zero included.
constexpr std::size_t kTextLimit = 512;
// One byte more, so that a zero stands behind whatever the formatting left.
constexpr std::size_t kBufferSize = kTextLimit + 1;

void FormatAndLog(LOG_MESSAGE_LEVEL level, const char* origin, const char* format,
                  std::va_list arguments) {
    char buffer[kBufferSize] = {};
    const int length = std::vsnprintf(buffer, kTextLimit, format, arguments);
    if (length < 0 || static_cast<std::size_t>(length) >= kTextLimit) {
        return;
    }
    buffer[kTextLimit] = '\0';
    LogWithOrigin(level, origin, buffer);
}

}  // namespace

void LogWarnFun(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    FormatAndLog(LOG_MESSAGE_LEVEL_WARN, "LogWarnFun", format, arguments);
    va_end(arguments);
}

void LogErrorFun(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    FormatAndLog(LOG_MESSAGE_LEVEL_ERROR, "LogErrorFun", format, arguments);
    va_end(arguments);
}

void LogWithOrigin(LOG_MESSAGE_LEVEL level, const char* origin, const char* text) {
    std::wstringstream stream;
    stream << text << L"(" << origin << L")";
    TraceLogger::GetInstance()->Log(level, stream);
}
