// The story and the summary of a log, as text for people and as JSON. Formats only; prints nothing.
#pragma once

#include <cstdint>
#include <string>

#include "lab/Recorder.h"
#include "lab/Terminal.h"
#include "lab/explain/PrefixLayout.h"
#include "lab/explain/Story.h"

namespace lab::explain {

/// What was read.
struct LogFacts {
    std::string name;
    std::uint64_t bytes = 0;
    std::uint64_t lines = 0;  ///< the sum of library, unknown and others
    std::uint64_t library = 0;
    std::uint64_t records = 0;
    std::uint64_t unknown = 0;
    std::uint64_t others = 0;
    PrefixLayout layout;
};

class StoryText {
  public:
    explicit StoryText(Style style) : m_style(style) {}

    /// One item, as lines. The process is named when there are several.
    std::string ItemLines(const Item& item, bool hasProcesses) const;
    /// The same at the place of a run's lines, which have no numbers.
    std::string LiveLines(const Item& item) const;
    std::string Summary(const LogFacts& facts, const Story& story) const;
    /// The part of a summary about what happened.
    std::string Figures(const Story& story) const;

  private:
    std::string Head(const Item& item) const;
    std::string Body(const Item& item, std::size_t indent, bool hasLines) const;
    std::string ProcessLines(const Totals& totals, bool isNamed) const;

    Style m_style;
};

/// One object, in ASCII, with the end of its line.
std::string ItemJson(const Item& item);
std::string SummaryJson(const LogFacts& facts, const Story& story);

}  // namespace lab::explain
