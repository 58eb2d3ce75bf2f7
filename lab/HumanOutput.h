// Formats the objects of a run as lines for people.
#pragma once

#include <string>

#include "lab/Recorder.h"
#include "lab/Terminal.h"

namespace lab {

/// The time of an object as it is shown.
std::string TimeText(const Json& object);

/// What is before the text of each line: "     330.9  host       EVENT 3    ".
std::string LineHead(const std::string& time, const std::string& thread, const std::string& label);

class HumanOutput {
  public:
    HumanOutput(Style style, bool log, bool bus) : m_style(style), m_log(log), m_bus(bus) {}

    /// One line or more, each with its end; empty when this kind of object was not requested.
    std::string Lines(const Json& object) const;

    /// A line of the script that is about to be carried out.
    std::string CommandLine(const std::string& text) const;

  private:
    Style m_style;
    bool m_log;
    bool m_bus;
};

}  // namespace lab
