// The stage of a Windows PC whose devices are simulated behind the test drivers. Windows alone.
#pragma once

#include "lab/Stage.h"

namespace lab {

/// Needs the options' route. WrongCall for options that do not fit.
Stage* MakeRelayStage(const StageOptions& options, Recorder& recorder);

/// The threads of this process that run the library.
unsigned LibraryThreads();

}  // namespace lab
