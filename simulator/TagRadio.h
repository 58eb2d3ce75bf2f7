// The antenna side of a tag: what a phone can do to it, and nothing else.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "simulator/Basics.h"

namespace simulator {

/// A tag reads and writes by pages of four bytes; one read command answers four pages.
constexpr std::size_t kPageSize = 4;
constexpr std::size_t kPagesPerRead = 4;
constexpr unsigned kFirstDataPage = 4;  ///< chip register 16

using Page = std::array<std::uint8_t, kPageSize>;
using PageQuad = std::array<std::uint8_t, kPageSize * kPagesPerRead>;

class TagRadio {
  public:
    virtual ~TagRadio() = default;

    /// A phone's field arrives. False: the tag doesn't answer (its radio is off).
    virtual bool Enter(Micros now) = 0;

    /// The phone's field is gone.
    virtual void Leave(Micros now) = 0;

    /// The phone selects the tag, before it reads or to see that it is still there.
    virtual bool Select(Micros now) = 0;

    /// Sixteen bytes from a page on; nothing when the tag doesn't answer.
    virtual std::optional<PageQuad> ReadPages(Micros now, unsigned page) = 0;

    /// False when the tag doesn't answer or the page is locked.
    virtual bool WritePage(Micros now, unsigned page, const Page& bytes) = 0;
};

}  // namespace simulator
