// The simulated devices of a run that are in this process.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "lab/PcParts.h"
#include "lab/Recorder.h"
#include "simulator/Pc.h"

namespace lab {

/// What a simulated phone has read, as an object of the recorder.
Json PhoneObject(const simulator::PhoneReport& report);

class PcDevices {
  public:
    /// `timeOf` turns a time of the emulation into milliseconds of the PC. The devices live as long
    /// as the process.
    PcDevices(const PcOptions& options, const PcParts& parts, Recorder& recorder,
              std::function<double(emulation::Micros time)> timeOf);

    /// See Pc::Act.
    void Act(const Command& command);
    std::string TagMemory();

  private:
    const PcParts& m_parts;
    simulator::Phone::Reporter m_reporter;
    simulator::Pc m_pc;
};

}  // namespace lab
