// The lines of events that could not be created.
#pragma once

#include "platform/platform.h"

void LogNoTransferEvent(DWORD error);
void LogNoHidNumberEvent(DWORD error);
void LogNoBtNumberEvent(DWORD error);
