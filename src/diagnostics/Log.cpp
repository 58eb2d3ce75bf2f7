#include "diagnostics/Log.h"

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>
#include <sstream>

namespace {

// Bytes that a text may take, its terminating zero included.
constexpr std::size_t kTextLimit = 512;
// One byte more, which is set to zero after the formatting.
constexpr std::size_t kBufferSize = kTextLimit + 1;
// A text and its origin, of at most 61 bytes, in brackets.
constexpr std::size_t kLineSize = kBufferSize + 64;

TAGPORT_PRINTF_FORMAT(3, 0)
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
    // Without memory the whole line is dropped, like one that does not fit. A log call must not log
    // part of a line and must not throw: on a thread of the library nothing would catch it.
    try {
        // One insertion: every insertion into a wide stream costs as much as the formatting.
        char line[kLineSize];
        const std::size_t textSize = std::strlen(text);
        const std::size_t originSize = std::strlen(origin);
        if (textSize + originSize + 3 > sizeof(line)) {
            return;
        }
        char* end = std::copy_n(text, textSize, line);
        *end++ = '(';
        end = std::copy_n(origin, originSize, end);
        *end++ = ')';
        *end = '\0';
        std::wstringstream stream;
        stream << line;
        if (stream) {
            TraceLogger::GetInstance()->Log(level, stream);
        }
    } catch (const std::bad_alloc&) {
        return;
    }
}
