// The objects of a run as lines for people.
#pragma once

#include <string>

#include "lab/Recorder.h"
#include "lab/Terminal.h"

namespace lab {

class HumanOutput {
  public:
    HumanOutput(Style style, bool log, bool bus) : m_style(style), m_log(log), m_bus(bus) {}

    /// One line or more with their ends, or nothing when this object isn't asked for.
    std::string Lines(const Json& object) const;

    /// A line of the script, or another word of the lab's own.
    std::string CommandLine(const std::string& text) const;

  private:
    std::string Head(const Json& object, const std::string& kind) const;

    Style m_style;
    bool m_log;
    bool m_bus;
};

}  // namespace lab
