// A byte string of at most 255 bytes that is stored in the object itself: a head and a URI text
// need no memory of their own. Includes the standard library alone.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// A value. Zero bytes are data. No locks.
// The bytes after the text are not cleared: that would take longer than to parse an image.
// NOLINTBEGIN(cppcoreguidelines-pro-type-member-init)
class ShortBytes {
  public:
    static constexpr std::size_t kMaxSize = 255;

    ShortBytes() = default;
    ShortBytes(const ShortBytes& other) { *this = std::string_view(other); }
    ShortBytes& operator=(const ShortBytes& other) { return *this = std::string_view(other); }
    ~ShortBytes() = default;

    /// Bytes after the 255th are dropped. `bytes` may lie in this object.
    ShortBytes& operator=(std::string_view bytes) {
        m_size = static_cast<std::uint8_t>(std::min(bytes.size(), kMaxSize));
        std::char_traits<char>::move(m_bytes.data(), bytes.data(), m_size);
        return *this;
    }

    operator std::string_view() const { return {m_bytes.data(), m_size}; }
    std::size_t size() const { return m_size; }

  private:
    std::uint8_t m_size = 0;
    std::array<char, kMaxSize> m_bytes;  // the first m_size have a value
};
// NOLINTEND(cppcoreguidelines-pro-type-member-init)
