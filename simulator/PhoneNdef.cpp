// TLVs, NDEF records and the URI abbreviations.
#include "simulator/PhoneNdef.h"

#include <array>

namespace simulator {

namespace {

constexpr std::size_t kDataAreaSize = 888;

// TLV tags of a data area.
constexpr std::uint8_t kTlvNull = 0x00;
constexpr std::uint8_t kTlvNdef = 0x03;
constexpr std::uint8_t kTlvTerminator = 0xFE;
constexpr std::uint8_t kTlvLongLength = 0xFF;  // two bytes of length follow, high byte first

// The first byte of a record.
constexpr std::uint8_t kMessageBegin = 0x80;
constexpr std::uint8_t kMessageEnd = 0x40;
constexpr std::uint8_t kChunk = 0x20;
constexpr std::uint8_t kShortRecord = 0x10;
constexpr std::uint8_t kHasId = 0x08;
constexpr std::uint8_t kFormatMask = 0x07;
constexpr std::uint8_t kWellKnown = 1;
constexpr std::uint8_t kMediaType = 2;

constexpr std::array<const char*, 7> kAbbreviations = {
    "", "http://www.", "https://www.", "http://", "https://", "tel:", "mailto:"};

// Takes bytes from a message; `good` goes false, and stays so, when there are too few.
struct Cursor {
    const Bytes& bytes;
    std::size_t at = 0;
    bool good = true;

    std::size_t Number(std::size_t size) {
        std::size_t value = 0;
        for (const std::uint8_t byte : Take(size)) {
            value = (value << 8U) | byte;
        }
        return value;
    }
    Bytes Take(std::size_t size) {
        if (!good || size > bytes.size() - at) {
            good = false;
            return {};
        }
        const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        at += size;
        return Bytes(begin, begin + static_cast<std::ptrdiff_t>(size));
    }
};

NdefPlace NoMessage(const std::string& problem) {
    return {NdefPlace::State::kNone, 0, 0, problem};
}

NdefPlace NeedMore(std::size_t needed) {
    if (needed > kDataAreaSize) {
        return NoMessage("there is no whole NDEF message in the tag's data area");
    }
    return {NdefPlace::State::kNeedMore, 0, 0, ""};
}

// Takes the first URI record and the first media-type record into `reading`.
bool Interpret(std::size_t format, const std::string& type, const Bytes& payload,
               NdefReading& reading, std::string& problem) {
    if (format == kWellKnown && type == "U" && !reading.uri) {
        if (payload.empty() || payload[0] >= kAbbreviations.size()) {
            problem =
                payload.empty() ? "the URI record is empty" : "the URI has an unknown abbreviation";
            return false;
        }
        reading.uri = kAbbreviations[payload[0]] + std::string(payload.begin() + 1, payload.end());
    } else if (format == kMediaType && reading.mimeType.empty()) {
        reading.mimeType = type;
        reading.mimePayload = payload;
    }
    return true;
}

}  // namespace

NdefPlace FindNdef(const Bytes& area) {
    std::size_t at = 0;
    for (;;) {
        if (at >= area.size()) {
            return NeedMore(at + 1);
        }
        const std::uint8_t tag = area[at++];
        if (tag == kTlvNull) {
            continue;
        }
        if (tag == kTlvTerminator) {
            return NoMessage("the data area ends before any NDEF message");
        }
        if (at >= area.size()) {
            return NeedMore(at + 1);
        }
        std::size_t length = area[at++];
        if (length == kTlvLongLength) {
            if (at + 2 > area.size()) {
                return NeedMore(at + 2);
            }
            length = (static_cast<std::size_t>(area[at]) << 8U) | area[at + 1];
            at += 2;
        }
        if (tag == kTlvNdef) {
            if (at + length > area.size()) {
                return NeedMore(at + length);
            }
            return {NdefPlace::State::kFound, at, length, ""};
        }
        at += length;
    }
}

bool ParseNdef(const Bytes& message, NdefReading& reading, std::string& problem) {
    const auto fail = [&](const std::string& text) {
        problem = text;
        return false;
    };
    reading = {};
    if (message.empty()) {
        return fail("the NDEF message is empty");
    }
    Cursor cursor{message};
    unsigned number = 0;
    for (bool last = false; !last;) {
        const std::string which = "record " + std::to_string(++number);
        const bool first = cursor.at == 0;
        const std::size_t head = cursor.Number(1);
        if (!cursor.good) {
            return fail("the message ends without a last record");
        }
        if (((head & kMessageBegin) != 0) != first) {
            return fail(which + " has a wrong begin flag");
        }
        if ((head & kChunk) != 0) {
            return fail(which + " is chunked");
        }
        last = (head & kMessageEnd) != 0;
        const std::size_t typeLength = cursor.Number(1);
        const std::size_t payloadLength = cursor.Number((head & kShortRecord) != 0 ? 1 : 4);
        const std::size_t idLength = (head & kHasId) != 0 ? cursor.Number(1) : 0;
        const Bytes typeBytes = cursor.Take(typeLength);
        const std::string type(typeBytes.begin(), typeBytes.end());
        cursor.Take(idLength);
        const Bytes payload = cursor.Take(payloadLength);
        if (!cursor.good) {
            return fail(which + " runs beyond the end of the message");
        }
        if (!Interpret(head & kFormatMask, type, payload, reading, problem)) {
            return false;
        }
    }
    if (cursor.at != message.size()) {
        return fail("bytes follow after the last record");
    }
    return true;
}

}  // namespace simulator
