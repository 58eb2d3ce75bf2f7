// Takes a tag image apart. Uses the layout of tagimage/ImageFormat.h and no code of the reader.
#include "lab/ImageNotes.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "lab/Hex.h"
#include "lab/Words.h"
#include "tagimage/ImageGeometry.h"

namespace lab {

using namespace imageformat;

namespace {

// Limits of the library's reader.
constexpr std::size_t kMaxReadLength = 253;
constexpr std::size_t kMinPayload = kUriHeadSize;
constexpr char kVersionBytes[] = {static_cast<char>(kVersionMark),
                                  static_cast<char>(kVersionMinor)};
constexpr std::string_view kVersion(kVersionBytes, kVersionSize);
constexpr std::size_t kBytesInLine = 16;
constexpr int kBytesWidth = static_cast<int>(kBytesInLine) * 3 - 1;

std::string Number(std::size_t number) {
    return std::to_string(number);
}

std::string Number(std::string_view bytes, const char* what) {
    return bytes.empty() ? std::string() : Number(ByteAt(bytes, 0)) + " " + what;
}

/// The text in quotes, with every byte that is not printable ASCII escaped.
std::string Text(std::string_view bytes) {
    std::string text = "\"";
    for (const char character : bytes) {
        const bool printable = character >= 0x20 && character < 0x7F;
        text +=
            printable ? std::string(1, character) : "\\x" + ToHex(std::string_view(&character, 1));
    }
    return text + "\"";
}

struct Check {
    bool fails;
    std::size_t offset;
    std::string text;
    bool refuses = true;  ///< else the image is accepted, but unusual
};

/// Every check of the library's reader in its order, then what is unusual. Of an image that fails
/// one, the values of later checks mean nothing.
std::vector<Check> Checks(std::string_view image) {
    const auto part = [&](std::size_t offset, std::size_t size) {
        return image.substr(std::min(offset, image.size()), size);
    };
    const auto at = [&](std::size_t offset) -> std::size_t {
        return offset < image.size() ? ByteAt(image, offset) : 0;
    };
    const auto isNot = [&](std::size_t offset, const char* name, std::uint8_t wanted,
                           const char* more = "") -> Check {
        return {at(offset) != wanted, offset,
                name + ("0x" + ToHex(part(offset, 1))) + ", not 0x" + ToHex(Bytes{wanted}) + more};
    };
    const auto unusual = [](bool is, const std::string& text) -> Check {
        return {is, 0, text, false};
    };
    const std::size_t length = at(kLengthOffset);
    const std::size_t end = kPayloadOffset + length;
    constexpr std::size_t kUriTypeLen = kPayloadOffset + kTypeLenOffset;
    constexpr std::size_t kUriCount = kPayloadOffset + kBodyCountOffset;
    constexpr std::size_t kUriPrefix = kPayloadOffset + kPrefixOffset;
    const std::size_t mime = kPayloadOffset + kUriHeadSize + at(kUriCount);
    const std::size_t left = end - std::min(mime, end);
    const std::size_t afterHead = left - std::min(kTypeOffset, left);
    const std::size_t typeLen = at(mime + kTypeLenOffset);
    const std::size_t count = at(mime + kBodyCountOffset);
    const std::size_t there = std::min(count, afterHead - std::min(typeLen, afterHead));
    const std::size_t body = mime + kTypeOffset + typeLen;
    const std::string_view uriType = part(kPayloadOffset + kTypeOffset, 1);
    const std::string_view version = part(body, kVersionSize);
    Check terminator = isNot(end, "terminator is ", kTerminatorTag);
    terminator.refuses = false;
    return {
        {image.size() < kFrameSize || image.size() > kMaxImageSize, 0,
         "the image has " + Counted(image.size(), "byte") + ": " + Number(kFrameSize) + " to " +
             Number(kMaxImageSize) + " are accepted"},
        isNot(kTagOffset, "TLV tag is ", kNdefMessageTag),
        {length > kMaxReadLength, kLengthOffset,
         "TLV length is " + Number(length) + ", above " + Number(kMaxReadLength)},
        {length + kFrameSize != image.size(), kLengthOffset,
         "TLV length is " + Number(length) + " and asks for an image of " +
             Counted(length + kFrameSize, "byte") + "; this one has " + Number(image.size())},
        {length < kMinPayload, kLengthOffset,
         "TLV length is " + Number(length) + ": the head of a URI record takes " +
             Number(kMinPayload)},
        isNot(kPayloadOffset + kRecordTypeOffset, "URI record begins with ", kUriRecord),
        {at(kUriTypeLen) > length, kUriTypeLen,
         "URI type length is " + Number(at(kUriTypeLen)) + ", more than the " +
             Counted(length, "byte") + " there are"},
        {at(kUriCount) == 0 || at(kUriCount) > length, kUriCount,
         "URI payload length is " + Number(at(kUriCount)) + ": 1 to " + Number(length) +
             " are allowed"},
        {length <= kPrefixOffset, kUriPrefix, "the image ends before the URI identifier code"},
        isNot(kUriPrefix, "URI identifier code is ", kHttpsPrefix, " (https)"),
        {at(kUriTypeLen) != g_uriType.size(), kUriTypeLen,
         "URI type length is " + Number(at(kUriTypeLen)) + ", not " + Number(g_uriType.size())},
        {mime > end, kUriCount,
         "URI payload length is 0x" + ToHex(part(kUriCount, 1)) +
             ": the record would end after the message"},
        {left == 0, mime, "there is nothing after the URI record"},
        isNot(mime, "media-type record begins with ", kMimeRecord),
        {left < kTypeOffset, mime,
         "the head of the media-type record is cut: " + Counted(left, "byte") + " of at least " +
             Number(kTypeOffset)},
        {typeLen > afterHead, mime + kTypeLenOffset,
         "media type length is " + Number(typeLen) + ": the record has " +
             Counted(afterHead, "byte") + " after its head"},
        {typeLen == 0, mime + kTypeLenOffset, "media type length is 0"},
        {there < kBodySize, mime + kBodyCountOffset,
         "media payload length is " + Number(count) + " with " + Counted(there, "byte") +
             " there: " + Number(kBodySize) + " are needed"},
        unusual(uriType != g_uriType, "URI type is " + Text(uriType) + ", not \"U\""),
        unusual(part(mime + kTypeOffset, typeLen) != g_mimeType,
                "media type is not " + Text(g_mimeType)),
        unusual(version != kVersion, "version is " + ToHex(version, true) + ", not 80 64"),
        unusual(count > kBodySize,
                "media payload length is " + Number(count) + ", not " + Number(kBodySize)),
        unusual(body + count != end, "the records end at offset " + Number(body + count) +
                                         ", the message at " + Number(end)),
        std::move(terminator),
    };
}

/// Names the bytes in order. The last field ends where the image ends.
std::vector<ImageField> Fields(std::string_view image) {
    std::vector<ImageField> fields;
    std::size_t at = 0;
    std::size_t end = image.size() - (image.size() < kFrameSize ? 0 : 1);  // the terminator's place
    const auto ahead = [&](std::size_t size) { return image.substr(at, std::min(size, end - at)); };
    // Names the next bytes, up to the end. Returns the first of them, 0 when there is none.
    const auto take = [&](std::size_t size, const char* name,
                          const std::string& meaning = {}) -> std::size_t {
        const std::string_view bytes = ahead(size);
        if (bytes.empty()) {
            return 0;
        }
        fields.push_back({at, bytes.size(), name, meaning});
        at += bytes.size();
        return ByteAt(bytes, 0);
    };
    take(1, "TLV tag", "an NDEF message");
    take(1, "TLV length", Number(ahead(1), "bytes of records"));
    take(1, "URI record", "first record, short, well-known type");
    take(1, "URI type length");
    const std::size_t count =
        take(1, "URI payload length", Number(ahead(1), "bytes, identifier code counted"));
    take(1, "URI type", Text(ahead(1)));
    if (count > 0) {
        take(1, "URI identifier code", ahead(1) == "\x04" ? "https://" : "");
        take(count - 1, "URI text", Text(ahead(count - 1)));
    }
    take(1, "media record", "last record, short, media type");
    const std::size_t typeLen = take(1, "media type length", Number(ahead(1), "bytes"));
    std::size_t left = take(1, "media payload length", Number(ahead(1), "bytes"));
    take(typeLen, "media type", Text(ahead(typeLen)));
    constexpr std::pair<std::size_t, const char*> kParts[] = {{kVersionSize, "version"},
                                                              {kMacSize, "MAC address"},
                                                              {kNumberSize, "random number"},
                                                              {kModelSize, "PC model"}};
    for (const auto& [size, name] : kParts) {
        take(std::min(size, left), name);
        left -= std::min(size, left);
    }
    take(left, "payload after the model", "not checked");
    take(image.size(), "after the records", "not checked");
    end = image.size();
    take(1, "terminator");
    return fields;
}

}  // namespace

std::string_view ImageIn(std::string_view memory) {
    return memory.size() <= kLengthOffset
               ? memory
               : memory.substr(0, ByteAt(memory, kLengthOffset) + kFrameSize);
}

ImageNotes AnnotateImage(std::string_view image) {
    ImageNotes notes{Fields(image), {}, {}};
    for (const Check& check : Checks(image)) {
        if (check.fails && check.refuses) {
            notes.fault = ImageFault{check.offset, check.text};
            break;
        }
        if (check.fails) {
            notes.remarks.push_back(check.text);
        }
    }
    return notes;
}

std::string ImageTable(std::string_view image, const ImageNotes& notes, const Style& style) {
    std::array<char, 160> line{};
    std::snprintf(line.data(), line.size(), "%6s %8s  %-*s  %s\n", "offset", "register",
                  kBytesWidth, "bytes", "field");
    std::string table = style.Bold(line.data());
    for (const ImageField& field : notes.fields) {
        const bool faulty = notes.fault && notes.fault->offset >= field.offset &&
                            notes.fault->offset < field.offset + field.size;
        for (std::size_t at = 0; at < field.size; at += kBytesInLine) {
            const std::size_t offset = field.offset + at;
            const std::size_t count = std::min(kBytesInLine, field.size - at);
            std::snprintf(line.data(), line.size(), "%6zu %8zu  %-*s  ", offset,
                          offset + imageformat::kFirstRegister, kBytesWidth,
                          ToHex(image.substr(offset, count), true).c_str());
            std::string text = line.data();
            if (at == 0) {
                text += field.name;
                if (!field.meaning.empty()) {
                    text += ": " + field.meaning;
                }
                text += faulty ? "   <-- refused" : "";
            }
            text.erase(text.find_last_not_of(' ') + 1);
            table += (faulty ? style.Red(text) : text) + "\n";
        }
    }
    return table;
}

}  // namespace lab
