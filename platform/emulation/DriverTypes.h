// The Win32 types and error codes of a simulated device's driver. On Windows they are the system's
// own: there the process behind the test drivers holds the same devices.
#pragma once

#ifdef _WIN32
#include "platform/windows/Win32.h"
#undef Yield  // an empty macro of <winbase.h>
#else
#include "platform/emulation/Win32.h"
#endif
