// The PC object of a Windows PC whose devices are simulated behind the test drivers. Windows alone.
#pragma once

#include "lab/Pc.h"

namespace lab {

/// Needs the options' route. WrongCall for options that do not fit.
Pc* MakeRelayedPc(const PcOptions& options, Recorder& recorder);

/// The threads of this process that run the library.
unsigned LibraryThreads();

}  // namespace lab
