// What a simulated phone has read, as an object of the recorder.
#pragma once

#include "lab/Recorder.h"
#include "simulator/Phone.h"

namespace lab {

Json PhoneObject(const simulator::PhoneReport& report);

}  // namespace lab
