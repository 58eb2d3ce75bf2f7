// The system's headers, in the order in which they need each other.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif

#include <windows.h>

// The two below need the types of the one above. The first declares C functions without extern "C".
extern "C" {
#include <hidsdi.h>
}
#include <setupapi.h>
