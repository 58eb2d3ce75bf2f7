// The 44 bytes that give a phone the PC's address, a random number and the PC's model. Copies bytes
// and never interprets them. The order and the sizes of the fields fix the place of the number on
// the chip, so they must not change.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "tagimage/ImageGeometry.h"

class NfcBody {
  public:
    /// Version set, all else zero.
    NfcBody();

    /// True if the first version byte has the value that the constructor sets; else false with a
    /// log line.
    bool IsInit() const;

    // A null reference clears the field: false with a log line.
    bool SetMacAddr(const std::uint8_t (&mac)[imageformat::kMacSize]);
    bool SetRandomNumber(const std::uint8_t (&number)[imageformat::kNumberSize]);
    bool SetModel(const std::uint8_t (&model)[imageformat::kModelSize]);

    /// The same for a number that is there. No log line.
    void ReplaceNumber(const std::array<std::uint8_t, imageformat::kNumberSize>& number);

    // Counted byte strings; zero bytes are data.
    std::string GetMacAddr() const;
    std::string GetRandomNumber() const;
    std::string GetModel() const;

    /// The 44 bytes. Logs a line.
    std::string GetContent() const;

    /// Takes over all four fields from the first 44 bytes, any version included; false with
    /// nothing changed for fewer than 44 or more than 255 bytes.
    bool Parse(std::string_view bytes);

  private:
    std::uint8_t m_version[imageformat::kVersionSize];
    std::uint8_t m_macAddr[imageformat::kMacSize];
    std::uint8_t m_randomNumber[imageformat::kNumberSize];
    std::uint8_t m_pcModel[imageformat::kModelSize];
};
