#include "lab/explain/ClockJump.h"

#include <utility>

#include "lab/explain/ProcessStory.h"

namespace lab::explain {

std::optional<ClockJump::Jump> ClockJump::Take(std::uint64_t line, std::string_view time,
                                               std::int64_t micros) {
    const auto back = Between(micros, m_latest);
    if (!back || *back < kLeast) {
        m_latest = m_latest && *m_latest > micros ? *m_latest : micros;
        m_earlier = 0;
        return std::nullopt;
    }
    if (m_earlier++ == 0) {
        m_jump = {line, std::string(time), *back};
    }
    if (m_earlier < kLines) {
        return std::nullopt;
    }
    m_earlier = 0;
    m_latest = micros;
    return std::exchange(m_jump, Jump());
}

}  // namespace lab::explain
