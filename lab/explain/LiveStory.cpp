#include "lab/explain/LiveStory.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

namespace lab {

LiveStory::LiveStory(Style style)
    : m_text(style),
      m_story([this](const explain::Item& item) { m_lines += m_text.LiveLines(item); }) {}

std::string LiveStory::Take(const Json& object) {
    if (object["kind"] != "log") {
        return {};
    }
    ++m_number;
    std::string line = object["line"];
    const std::string thread = object["thread"];
    const double milliseconds = object["t"];
    std::array<char, 32> time{};
    std::snprintf(time.data(), time.size(), "%.1f", milliseconds);
    // The origin in brackets ends the line.
    line.resize(std::min(line.rfind('('), line.size()));
    const auto match = explain::Meanings::Get().Find(line);
    if (match) {
        m_story.Take(
            {m_number, *match, time.data(), std::llround(milliseconds * 1000), {}, thread});
    }
    return std::exchange(m_lines, {});
}

std::string LiveStory::End() {
    m_story.End();
    return std::exchange(m_lines, {}) + "\nWhat the log says:\n" + m_text.Figures(m_story);
}

}  // namespace lab
