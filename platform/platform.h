// The only door to the operating system. The library folders include this header and no other
// header of a system; they call the Win32 operations by their own names.
//
// On Windows the system's own headers answer, with the lock types and KeepLoaded added. Elsewhere a
// small layer declares exactly the operations that this library uses, with the same results.
#pragma once

#ifdef _WIN32
#include "platform/windows/Module.h"
#include "platform/windows/Sync.h"
#include "platform/windows/Win32.h"
#else
#include "platform/hosted/Sync.h"
#include "platform/hosted/Win32.h"
#endif
