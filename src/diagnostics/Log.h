// The library's only diagnostic output: two printf-like functions that pass a line to the
// platform's logger. Every folder may use them; they include none.
#pragma once

#include "platform/PrintfFormat.h"
#include "platform/services/TraceLog.h"

/// Formats a text as printf does and logs it at level 3 or 4, followed by the function's name in
/// brackets. A text of 512 bytes or more, or one that cannot be formatted, is not logged at all,
/// and nothing reports that. May be called on any thread, also with locks of the library held. So a
/// logger must not call the library, and a slow one slows the library down.
void LogWarnFun(const char* format, ...) TAGPORT_PRINTF_FORMAT(1, 2);
void LogErrorFun(const char* format, ...) TAGPORT_PRINTF_FORMAT(1, 2);

/// Logs a text without conversions, followed by `origin` in brackets. For the one place whose line
/// has its own name as the origin instead of a front end's.
void LogWithOrigin(LOG_MESSAGE_LEVEL level, const char* origin, const char* text);
