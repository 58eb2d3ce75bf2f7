// The PC object of a Windows PC whose Bluetooth client is the stand-in, with a simulated keyboard
// in this process. Windows alone.
#pragma once

#include "lab/Pc.h"

namespace lab {

/// For the route "ble" alone. WrongCall for options that do not fit.
Pc* MakeBluetoothPc(const PcOptions& options, Recorder& recorder);

}  // namespace lab
