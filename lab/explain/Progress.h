// A progress bar on standard error, when that is a terminal that can show one.
#pragma once

#include <chrono>
#include <cstdint>

namespace lab::explain {

class Progress {
  public:
    /// `total` 0: unknown. The input is read `passes` times. Nothing is shown in the first half
    /// second, nor when `isShown` is false.
    Progress(std::uint64_t total, unsigned passes, bool isShown);
    /// Removes the bar.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// `done` counts the bytes of all passes.
    void Show(std::uint64_t done);

  private:
    std::uint64_t m_total;
    unsigned m_passes;
    bool m_isShown;
    std::size_t m_drawn = 0;  // columns
    std::chrono::steady_clock::time_point m_next;
};

}  // namespace lab::explain
