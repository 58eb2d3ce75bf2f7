#include "lab/explain/Progress.h"

#include <algorithm>
#include <cstdlib>
#include <string>

#include "lab/Terminal.h"

namespace lab::explain {

namespace {

constexpr std::chrono::milliseconds kFirst{500};
constexpr std::chrono::milliseconds kPause{100};
constexpr std::size_t kLongestBar = 40;
constexpr std::size_t kShortestBar = 10;
constexpr std::uint64_t kMegabyte = 1'000'000;

bool IsDumb() {
    const char* const terminal = std::getenv("TERM");
    return terminal != nullptr && std::string(terminal) == "dumb";
}

}  // namespace

Progress::Progress(std::uint64_t total, unsigned passes, bool isShown)
    : m_total(total),
      m_passes(passes),
      m_isShown(isShown && ErrorIsTerminal() && !IsDumb()),
      m_next(std::chrono::steady_clock::now() + kFirst) {}

Progress::~Progress() {
    if (m_drawn > 0) {
        WriteError("\r" + std::string(m_drawn, ' ') + "\r");
    }
}

void Progress::Show(std::uint64_t done) {
    if (!m_isShown || std::chrono::steady_clock::now() < m_next) {
        return;
    }
    m_next = std::chrono::steady_clock::now() + kPause;
    const std::size_t width = ErrorWidth();
    std::string text = std::to_string(done / kMegabyte) + " MB";
    if (m_total > 0) {
        const std::uint64_t share = std::min<std::uint64_t>(done * 100 / (m_passes * m_total), 100);
        const std::string percent = std::to_string(share) + "%";
        text = percent + " of " + std::to_string(m_total / kMegabyte) + " MB";
        if (width > text.size() + kShortestBar + 4) {
            const std::size_t size = std::min(kLongestBar, width - text.size() - 4);
            const std::size_t full = size * share / 100;
            text = "[" + std::string(full, '#') + std::string(size - full, '.') + "] " + text;
        } else if (width <= text.size()) {
            text = percent;
        }
    }
    if (text.size() >= width) {
        text.clear();  // the last column stays empty, so that no line is begun
    }
    const std::size_t drawn = text.size();
    text.resize(std::max(m_drawn, drawn), ' ');
    m_drawn = drawn;
    WriteError("\r" + text);
}

}  // namespace lab::explain
