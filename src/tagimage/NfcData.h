// The tag image: builds the bytes that a phone finds on the tag from their fields, and parses them.
// Knows nothing of the peripheral that moves the bytes.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tagimage/ImageGeometry.h"
#include "tagimage/NfcBody.h"
#include "tagimage/NfcHead.h"
#include "tagimage/ShortBytes.h"

/// To build: construct, Init, InitValue, setters, GetContent. To read: construct, Init, Parse,
/// getters. Byte strings are counted; zero bytes in them are data. Results are bools and failures
/// are logged; only memory exhaustion throws. A value: parsing needs no memory outside the object,
/// which has less than 900 bytes. No locks: one thread at a time.
class NfcData {
  public:
    /// Makes the three parts anew.
    bool Init();

    /// Sets the constants of the heads and the tag. False before Init.
    bool InitValue();

    /// Refreshes the three length bytes. False with a log line, and the TLV length as it was, when
    /// the image would not fit; the records' own payload lengths are new even then.
    bool CaculateLength();

    // False before Init, or when the image does not fit; the value is stored in the latter case.
    bool SetMacAddr(const std::uint8_t (&mac)[imageformat::kMacSize]);
    bool SetRandomNumber(const std::uint8_t (&number)[imageformat::kNumberSize]);
    bool SetModel(const std::uint8_t (&model)[imageformat::kModelSize]);

    /// URI text without scheme. Up to kMaxUriSize bytes fit; more, up to kMaxStoredUriSize, are
    /// stored and then refused with a log line; beyond that nothing changes.
    bool SetUrl(const std::string& url);

    /// Whether the setters of the other fields would work: the parts exist and the URI text fits.
    bool FitsOnTag() const;

    /// Replaces the number and nothing else, without check or log line.
    void ReplaceNumber(const std::array<std::uint8_t, imageformat::kNumberSize>& number);

    /// The image made from the fields, without a check of them. Missing parts add no bytes.
    std::string GetContent() const;

    std::string GetUrl() const;
    // Empty before Init.
    std::string GetMacAddr() const;
    std::string GetRandomNumber() const;
    std::string GetModel() const;

    /// Fills the fields from an image of any bytes and length. False for a malformed one, which
    /// leaves the object partly filled: drop it then.
    bool Parse(std::string_view image);

  private:
    /// Whether all three parts exist.
    bool HasParts() const;
    bool HeaderParse(std::string_view record, std::uint8_t& bodyCount);
    bool ContentParse(std::string_view record);

    std::uint8_t m_tagType = 0;
    std::uint8_t m_length = 0;
    std::optional<NfcHead> m_uriHead;
    ShortBytes m_uri;  ///< text after the identifier code
    std::optional<NfcHead> m_nfcHead;
    std::optional<NfcBody> m_nfcBody;
    std::uint8_t m_terminator = imageformat::kTerminatorTag;
};
