// The radio side of a tag: the operations of a phone.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "simulator/Basics.h"

namespace simulator {

/// A tag has pages of four bytes; one read command returns four of them.
constexpr std::size_t kPageSize = 4;
constexpr std::size_t kPagesPerRead = 4;
constexpr unsigned kFirstDataPage = 4;  ///< chip register 16

using PageQuad = std::array<std::uint8_t, kPageSize * kPagesPerRead>;

class TagRadio {
  public:
    virtual ~TagRadio() = default;

    /// A phone's field begins. False: the tag does not answer, as its radio is off.
    virtual bool Enter(Micros now) = 0;

    /// The phone's field ends.
    virtual void Leave(Micros now) = 0;

    /// The phone selects the tag, before it reads or to check that it is still there.
    virtual bool Select(Micros now) = 0;

    /// Four pages, starting at `page`; nothing when the tag does not answer.
    virtual std::optional<PageQuad> ReadPages(Micros now, unsigned page) = 0;
};

}  // namespace simulator
