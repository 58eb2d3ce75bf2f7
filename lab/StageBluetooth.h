// The stage of a Windows PC whose Bluetooth client is the stand-in, with a simulated keyboard in
// this process. Windows alone.
#pragma once

#include "lab/Stage.h"

namespace lab {

/// For the route "ble" alone. WrongCall for options that do not fit.
Stage* MakeBluetoothStage(const StageOptions& options, Recorder& recorder);

}  // namespace lab
