// Explains the log of a run while it is written.
#pragma once

#include <string>

#include "lab/Recorder.h"
#include "lab/explain/Story.h"
#include "lab/explain/StoryText.h"

namespace lab {

/// Called by one thread at a time.
class LiveStory {
  public:
    explicit LiveStory(Style style);

    /// Takes an object of the run; returns what its line of the log has completed, as lines.
    std::string Take(const Json& object);
    /// What is not finished, and the figures.
    std::string End();

  private:
    explain::StoryText m_text;
    std::string m_lines;  // that are complete and not returned yet
    explain::Story m_story;
};

}  // namespace lab
