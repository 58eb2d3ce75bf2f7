// The tag image in numbers: every offset, size and limit, and where the random number lies on the
// chip. The one place of these numbers for the whole library. Includes the standard library alone,
// so that every folder above chip/ may include it.
//
// The image is an NDEF message TLV: tag, length, two short records without ID, terminator. The
// first record is a URI, the second a media type with a 44-byte payload. All fields but the texts
// and byte arrays are one byte wide, so the format has no byte order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

// The types of the two records. Constants of the compiler, so that they stand before any code of
// the library or of a host runs.
inline constexpr std::string_view g_uriType = "U";
inline constexpr std::string_view g_mimeType = "application/vnd.orvane.handoff.ndefmsg";

namespace imageformat {

// TLV.
inline constexpr std::uint8_t kNdefMessageTag = 0x03;
inline constexpr std::uint8_t kTerminatorTag = 0xFE;
inline constexpr std::size_t kTagOffset = 0;
inline constexpr std::size_t kLengthOffset = 1;
inline constexpr std::size_t kPayloadOffset = 2;  // also the size of tag and length together
inline constexpr std::size_t kFrameSize = kPayloadOffset + 1;  // tag, length, terminator
inline constexpr std::size_t kMaxImageSize = 255;
inline constexpr std::size_t kMaxLength = kMaxImageSize - kFrameSize;

// Head of a record: flags and type name format, type length, payload length, type.
inline constexpr std::size_t kRecordTypeOffset = 0;
inline constexpr std::size_t kTypeLenOffset = 1;
inline constexpr std::size_t kBodyCountOffset = 2;
inline constexpr std::size_t kTypeOffset = 3;

// URI record: message begin, short record, well-known type.
inline constexpr std::uint8_t kUriRecord = 0x91;
inline constexpr std::uint8_t kHttpsPrefix = 0x04;  // identifier code before the URI text
inline constexpr std::size_t kUriHeadSize = kTypeOffset + g_uriType.size();
inline constexpr std::size_t kPrefixOffset = kUriHeadSize;
inline constexpr std::size_t kUriOffset = kPrefixOffset + 1;

// Media-type record: message end, short record, media type.
inline constexpr std::uint8_t kMimeRecord = 0x52;
inline constexpr std::size_t kMimeHeadSize = kTypeOffset + g_mimeType.size();

// Payload of the media-type record.
inline constexpr std::uint8_t kVersionMark = 0x80;
inline constexpr std::uint8_t kVersionMinor = 0x64;
inline constexpr std::size_t kVersionSize = 2;
inline constexpr std::size_t kMacSize = 6;
inline constexpr std::size_t kNumberSize = 32;
inline constexpr std::size_t kModelSize = 4;
inline constexpr std::size_t kMacOffset = kVersionSize;
inline constexpr std::size_t kNumberOffset = kMacOffset + kMacSize;
inline constexpr std::size_t kModelOffset = kNumberOffset + kNumberSize;
inline constexpr std::size_t kBodySize = kModelOffset + kModelSize;
inline constexpr std::size_t kMaxBodySize = 255;

// The URI text. What is stored is bounded first; what fits on a tag is less.
inline constexpr std::size_t kLengthWithoutUri = kUriOffset + kMimeHeadSize + kBodySize;
inline constexpr std::size_t kMaxStoredUriSize = 252;
inline constexpr std::size_t kMaxUriSize = kMaxLength - kLengthWithoutUri;

// The chip. Image offset i lies at register kFirstRegister + i.
inline constexpr std::uint16_t kFirstRegister = 16;

/// First of the 32 registers of the random number after a URI text of this size.
constexpr std::uint16_t NumberRegister(std::size_t uriSize) {
    return static_cast<std::uint16_t>(kFirstRegister + kPayloadOffset + kUriOffset + uriSize +
                                      kMimeHeadSize + kNumberOffset);
}

// The URI sizes that the number is read back for: PC type 2 shows no URI, 5 and 8 show one.
inline constexpr std::size_t kBlankUriSize = 1;
inline constexpr std::size_t kShownUriSize = 50;

// Readers on phones and keyboards rest on these.
static_assert(g_mimeType.size() == 38 && kBodySize == 44 && kLengthWithoutUri == 90);
static_assert(kMaxUriSize == 162);
static_assert(NumberRegister(kBlankUriSize) == 73 && NumberRegister(kShownUriSize) == 122);

/// The byte at a position that is known to exist.
inline std::uint8_t ByteAt(std::string_view bytes, std::size_t position) {
    return static_cast<std::uint8_t>(bytes[position]);
}

}  // namespace imageformat
