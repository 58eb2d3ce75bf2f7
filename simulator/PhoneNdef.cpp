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
    NdefPlace place;
    place.problem = problem;
    return place;
}

NdefPlace NeedMore(std::size_t needed) {
    if (needed > kDataAreaSize) {
        return NoMessage("there is no whole NDEF message in the tag's data area");
    }
    NdefPlace place;
    place.state = NdefPlace::State::kNeedMore;
    place.needed = needed;
    return place;
}

// Takes the first URI record and the first media-type record into `reading`.
bool Interpret(const NdefRecord& record, NdefReading& reading, std::string& problem) {
    if (record.typeNameFormat == kWellKnown && record.type == "U" && !reading.uri) {
        if (record.payload.empty() || record.payload[0] >= kAbbreviations.size()) {
            problem = record.payload.empty() ? "the URI record is empty"
                                             : "the URI has an unknown abbreviation";
            return false;
        }
        reading.uri = kAbbreviations[record.payload[0]] +
                      std::string(record.payload.begin() + 1, record.payload.end());
    } else if (record.typeNameFormat == kMediaType && reading.mimeType.empty()) {
        reading.mimeType = record.type;
        reading.mimePayload = record.payload;
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
            NdefPlace place;
            place.state = NdefPlace::State::kFound;
            place.offset = at;
            place.length = length;
            return place;
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
    reading.message = message;
    if (message.empty()) {
        return fail("the NDEF message is empty");
    }
    Cursor cursor{message};
    for (bool last = false; !last;) {
        const std::string which = "record " + std::to_string(reading.records.size() + 1);
        const bool first = cursor.at == 0;
        const auto head = static_cast<std::uint8_t>(cursor.Number(1));
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
        NdefRecord record;
        record.typeNameFormat = head & kFormatMask;
        const std::size_t typeLength = cursor.Number(1);
        const std::size_t payloadLength = cursor.Number((head & kShortRecord) != 0 ? 1 : 4);
        const std::size_t idLength = (head & kHasId) != 0 ? cursor.Number(1) : 0;
        const Bytes type = cursor.Take(typeLength);
        record.type.assign(type.begin(), type.end());
        record.id = cursor.Take(idLength);
        record.payload = cursor.Take(payloadLength);
        if (!cursor.good) {
            return fail(which + " runs beyond the end of the message");
        }
        if (!Interpret(record, reading, problem)) {
            return false;
        }
        reading.records.push_back(std::move(record));
    }
    if (cursor.at != message.size()) {
        return fail("bytes follow after the last record");
    }
    return true;
}

}  // namespace simulator
