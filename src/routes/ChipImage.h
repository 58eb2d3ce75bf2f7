// Image and number on a chip behind a kernel driver.
#pragma once

#include <cstdint>

#include "routes/ContentLock.h"

/// Writes a whole image in blocks of 16 bytes, three times at most. False when it did not arrive.
bool WriteImageToChip(const std::uint8_t* image, std::int32_t length)
    TAGPORT_REQUIRES(ContentLock::m_mutex);

/// Reads the 32 bytes of the number from a register on and keeps them as the chip's last number.
/// On failure `number` may hold a first half.
bool ReadNumberFromChip(std::uint16_t regAddr, std::uint8_t* number)
    TAGPORT_REQUIRES(ContentLock::m_mutex);
