// What all managers of a process share in memory, and the locks around it.
#pragma once

#include <tagport/NfcManager.h>

#include <array>
#include <cstdint>
#include <mutex>
#include <optional>

#include "peripheral/NumberStore.h"
#include "platform/NeverDestroyed.h"

/// Held by DeviceInit and WriteMessage for their whole length.
extern platform::NeverDestroyed<std::mutex> m_staticDeviceMutex;

/// Held by SetMcuKbConnectStatus around its one store.
extern platform::NeverDestroyed<std::mutex> m_staticMcuKbMutex;

/// Guards every manager's message and image in memory. A short lock: never held over a transfer, a
/// pause or a listener call, so WriteRandNum never waits for the tag.
extern platform::NeverDestroyed<std::mutex> g_memoryMutex;

/// Notices a random number that the host gives while an operation that began earlier still carries
/// an older one: the number on the tag, or the one in its message. The operation then keeps the
/// newer, so that the last number given is the one that stands on the tag in the end.
class NumberWatch {
  public:
    NumberWatch() = default;
    ~NumberWatch();  // takes g_memoryMutex
    NumberWatch(const NumberWatch&) = delete;
    NumberWatch& operator=(const NumberWatch&) = delete;

    // The rest under g_memoryMutex.

    /// Begins to watch for numbers that are given for this image.
    void Begin(const NfcData* image);

    /// The last number given since, if any.
    const std::optional<RandomNumber>& given() const { return m_given; }

    /// Tells every watch of the image about a number.
    static void Announce(const NfcData* image, const RandomNumber& number);

  private:
    const NfcData* m_image = nullptr;
    std::optional<RandomNumber> m_given;
    NumberWatch* m_next = nullptr;  // in the list of all watches
    bool m_listed = false;
};
