// Which random number is the newest, while operations that know older ones are under way.
#pragma once

#include <optional>

#include "events/NumberStore.h"

class NfcData;

/// Knows the last random number that the host gave for an image, as long as something that began
/// earlier may still put an older one in its place: a read that brings the tag's number into
/// memory, a write that carries its message's, a number thread whose write is still to come. They
/// keep the newer, so that the last number given is the one that stands on the tag in the end.
class NumberWatch {
  public:
    NumberWatch() = default;
    ~NumberWatch();  // takes g_memoryMutex
    NumberWatch(const NumberWatch&) = delete;
    NumberWatch& operator=(const NumberWatch&) = delete;

    // The rest under g_memoryMutex.

    /// Begins to watch for numbers that are given for this image.
    void Begin(const NfcData* image);

    /// The same, and takes over what another watch of the image knows already.
    void BeginWithKnown(const NfcData* image);

    /// The last number given, if any.
    const std::optional<RandomNumber>& given() const { return m_given; }

    /// Tells every watch of the image about a number.
    static void Announce(const NfcData* image, const RandomNumber& number);

  private:
    const NfcData* m_image = nullptr;
    std::optional<RandomNumber> m_given;
    NumberWatch* m_next = nullptr;  // in the list of all watches
    bool m_listed = false;
};
