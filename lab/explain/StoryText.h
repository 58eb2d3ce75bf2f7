// The story and the summary of a log, as text for people and as JSON. Formats only; prints nothing.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lab/Recorder.h"
#include "lab/Terminal.h"
#include "lab/explain/LogLines.h"
#include "lab/explain/Prefix.h"
#include "lab/explain/Story.h"

namespace lab::explain {

/// What was read.
struct LogFacts {
    std::vector<std::string> files;
    std::uint64_t bytes = 0;
    LineCounts counts;
    PrefixLayout layout;
};

class StoryText {
  public:
    /// Lines are wrapped to `width` columns; 0: they are not. With several files a line's number
    /// comes with the name of its file.
    StoryText(Style style, std::size_t width, std::vector<std::string> files)
        : m_style(style), m_width(width), m_files(std::move(files)) {}

    /// One item, as lines. The process is named when there are several.
    std::string ItemLines(const Item& item, bool hasProcesses) const;
    /// The same at the place of a run's lines, which have no numbers.
    std::string LiveLines(const Item& item) const;
    std::string Summary(const LogFacts& facts, const Story& story) const;
    /// The part of a summary about what happened.
    std::string Figures(const Story& story) const;

    /// One object, in ASCII, with the end of its line.
    std::string ItemJson(const Item& item) const;
    std::string SummaryJson(const LogFacts& facts, const Story& story) const;

  private:
    std::string Place(const Mark& place) const;
    std::string Head(const Item& item) const;
    std::string Body(const Item& item, std::string head, std::size_t indent) const;
    std::string Wrapped(const std::string& text, std::size_t indent, std::size_t hanging) const;
    std::string ProcessLines(const Totals& totals, bool isNamed) const;

    Style m_style;
    std::size_t m_width;
    std::vector<std::string> m_files;  // none: the lines have no numbers
};

}  // namespace lab::explain
