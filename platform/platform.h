// The only access to the operating system. The library folders include this header and no header of
// a system, and call the Win32 operations by their own names.
//
// On Windows it includes the system's headers and adds the lock types and KeepLoaded. Elsewhere it
// includes a small layer with exactly the operations that this library uses and the same results.
#pragma once

#ifdef _WIN32
#include "platform/windows/Module.h"
#include "platform/windows/Sync.h"
#include "platform/windows/Win32.h"
#else
#include "platform/emulation/Sync.h"
#include "platform/emulation/Win32.h"
#endif
