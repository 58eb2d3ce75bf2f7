#include "lab/explain/LiveStory.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

namespace lab {

LiveStory::LiveStory(Style style)
    : m_text(style, OutputIsTerminal() ? OutputWidth() : 0, {}),
      m_story([this](const explain::Item& item) { m_lines += m_text.LiveLines(item); }) {}

std::string LiveStory::Take(const Json& object) {
    if (object["kind"] != "log") {
        return {};
    }
    std::string line = object["line"];
    const std::string thread = object["thread"];
    const double milliseconds = object["t"];
    std::array<char, 32> time{};
    std::snprintf(time.data(), time.size(), "%.1f", milliseconds);
    // The origin in brackets ends the line.
    line.resize(std::min(line.rfind('('), line.size()));
    if (const auto match = explain::FindMeaning(line)) {
        m_story.Take({*match, {1, 0, time.data(), std::llround(milliseconds * 1000)}, {}, thread});
    }
    return std::exchange(m_lines, {});
}

std::string LiveStory::End() {
    m_story.End();
    return std::exchange(m_lines, {}) + "\nWhat the log says:\n" + m_text.Figures(m_story);
}

}  // namespace lab
