// The story and the summary of a log as text for people, made of their JSON. Prints nothing.
#pragma once

#include <string>

#include "lab/Terminal.h"
#include "lab/explain/Story.h"

namespace lab::explain {

/// One object as a line, in ASCII.
std::string JsonLine(const Json& object);

class StoryText {
  public:
    /// Lines are wrapped to `width` columns; 0: they are not. With several files a line's number
    /// comes with the name of its file. Without any the story is that of a run, whose lines have no
    /// numbers.
    StoryText(Style style, std::size_t width, std::size_t files)
        : m_style(style), m_width(width), m_files(files) {}

    /// One item, as lines. The process is named when there are several.
    std::string ItemLines(const Json& item, bool hasProcesses) const;
    std::string Summary(const Json& summary) const;
    /// The part of a summary about what happened.
    std::string Figures(const Json& figures) const;

  private:
    std::string Place(const Json& place) const;
    std::string Fold(const std::string& text, std::size_t indent, std::size_t hanging) const;
    std::string ProcessLines(const Json& process, bool isNamed) const;

    Style m_style;
    std::size_t m_width;
    std::size_t m_files;
};

}  // namespace lab::explain
