// Notices a clock that goes back: it was set, or the PC was started again.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace lab::explain {

/// The lines of threads need not be in a strict order, so a few lines must agree.
class ClockJump {
  public:
    struct Jump {
        std::uint64_t line = 0;  ///< the first one with the earlier time
        std::string time;
        std::int64_t micros = 0;  ///< how far the clock has gone back
    };

    /// Takes a line's time, in microseconds. Gives a jump when it is certain.
    std::optional<Jump> Take(std::uint64_t line, std::string_view time, std::int64_t micros);

  private:
    static constexpr std::int64_t kLeast = 2'000'000;
    static constexpr unsigned kLines = 6;

    std::optional<std::int64_t> m_latest;
    Jump m_jump;
    unsigned m_earlier = 0;  // lines since the jump
};

}  // namespace lab::explain
