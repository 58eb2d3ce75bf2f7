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
constexpr std::size_t kBytesInLine = 16;
constexpr int kBytesWidth = static_cast<int>(kBytesInLine) * 3 - 1;

std::string Byte(std::string_view image, std::size_t offset) {
    return "0x" + ToHex(image.substr(offset, 1));
}

/// A fault unless the byte at `offset` is this one.
std::optional<ImageFault> Other(std::string_view image, std::size_t offset, const char* name,
                                std::uint8_t wanted, const char* more = "") {
    return ByteAt(image, offset) == wanted
               ? std::nullopt
               : std::make_optional(ImageFault{offset, name + Byte(image, offset) + ", not 0x" +
                                                           ToHex(Bytes{wanted}) + more});
}

/// The offset of the second record, computed as the library's reader does.
std::size_t SecondRecord(std::string_view image) {
    return kPayloadOffset + kUriHeadSize + ByteAt(image, kPayloadOffset + kBodyCountOffset);
}

std::optional<ImageFault> FrameFault(std::string_view image) {
    if (image.size() < kFrameSize || image.size() > kMaxImageSize) {
        return ImageFault{0, "the image has " + Counted(image.size(), "byte") + ": " +
                                 std::to_string(kFrameSize) + " to " +
                                 std::to_string(kMaxImageSize) + " are accepted"};
    }
    if (const auto fault = Other(image, kTagOffset, "TLV tag is ", kNdefMessageTag)) {
        return fault;
    }
    const std::size_t length = ByteAt(image, kLengthOffset);
    if (length > kMaxReadLength) {
        return ImageFault{kLengthOffset, "TLV length is " + std::to_string(length) + ", above " +
                                             std::to_string(kMaxReadLength)};
    }
    if (image.size() - kFrameSize != length) {
        return ImageFault{kLengthOffset, "TLV length is " + std::to_string(length) +
                                             " and asks for an image of " +
                                             Counted(length + kFrameSize, "byte") +
                                             "; this one has " + std::to_string(image.size())};
    }
    if (length < kMinPayload) {
        return ImageFault{kLengthOffset, "TLV length is " + std::to_string(length) +
                                             ": the head of a URI record takes " +
                                             std::to_string(kMinPayload)};
    }
    return std::nullopt;
}

std::optional<ImageFault> UriFault(std::string_view image) {
    const std::size_t length = ByteAt(image, kLengthOffset);
    const std::size_t first = kPayloadOffset + kRecordTypeOffset;
    if (const auto fault = Other(image, first, "URI record begins with ", kUriRecord)) {
        return fault;
    }
    const std::size_t typeAt = kPayloadOffset + kTypeLenOffset;
    const std::size_t typeLen = ByteAt(image, typeAt);
    if (typeLen > length) {
        return ImageFault{typeAt, "URI type length is " + std::to_string(typeLen) +
                                      ", more than the " + Counted(length, "byte") + " there are"};
    }
    const std::size_t countAt = kPayloadOffset + kBodyCountOffset;
    const std::size_t count = ByteAt(image, countAt);
    if (count == 0 || count > length) {
        return ImageFault{countAt, "URI payload length is " + std::to_string(count) + ": 1 to " +
                                       std::to_string(length) + " are allowed"};
    }
    const std::size_t prefixAt = kPayloadOffset + kPrefixOffset;
    if (length <= kPrefixOffset) {
        return ImageFault{prefixAt, "the image ends before the URI identifier code"};
    }
    if (const auto fault =
            Other(image, prefixAt, "URI identifier code is ", kHttpsPrefix, " (https)")) {
        return fault;
    }
    if (typeLen != g_uriType.size()) {
        return ImageFault{typeAt, "URI type length is " + std::to_string(typeLen) + ", not " +
                                      std::to_string(g_uriType.size())};
    }
    return std::nullopt;
}

std::optional<ImageFault> MimeFault(std::string_view image) {
    const std::size_t end = kPayloadOffset + ByteAt(image, kLengthOffset);
    const std::size_t second = SecondRecord(image);
    if (second > end) {
        const std::size_t countAt = kPayloadOffset + kBodyCountOffset;
        return ImageFault{countAt, "URI payload length is " + Byte(image, countAt) +
                                       ": the record would end after the message"};
    }
    const std::size_t left = end - second;
    if (left == 0) {
        return ImageFault{second, "there is nothing after the URI record"};
    }
    if (const auto fault = Other(image, second, "media-type record begins with ", kMimeRecord)) {
        return fault;
    }
    if (left < kTypeOffset) {
        return ImageFault{second,
                          "the head of the media-type record is cut: " + Counted(left, "byte") +
                              " of at least " + std::to_string(kTypeOffset)};
    }
    const std::size_t typeAt = second + kTypeLenOffset;
    const std::size_t typeLen = ByteAt(image, typeAt);
    if (kTypeOffset + typeLen > left) {
        return ImageFault{typeAt, "media type length is " + std::to_string(typeLen) +
                                      ": the record has " + Counted(left - kTypeOffset, "byte") +
                                      " after its head"};
    }
    if (typeLen == 0) {
        return ImageFault{typeAt, "media type length is 0"};
    }
    const std::size_t countAt = second + kBodyCountOffset;
    const std::size_t count = ByteAt(image, countAt);
    const std::size_t there = std::min(count, left - kTypeOffset - typeLen);
    if (there < kBodySize) {
        return ImageFault{countAt, "media payload length is " + std::to_string(count) + " with " +
                                       Counted(there, "byte") +
                                       " there: " + std::to_string(kBodySize) + " are needed"};
    }
    return std::nullopt;
}

/// Names the bytes in order. The last field ends where the image ends.
class FieldNamer {
  public:
    FieldNamer(std::string_view image, std::vector<ImageField>& fields)
        : m_image(image), m_fields(fields) {}

    /// Names the next bytes, up to the end. Returns the first of them, 0 when there is none.
    std::uint8_t Take(std::size_t size, const std::string& name, const std::string& meaning = {}) {
        const std::size_t there = std::min(size, m_end > m_at ? m_end - m_at : 0);
        if (there == 0) {
            return 0;
        }
        m_fields.push_back({m_at, there, name, meaning});
        return ByteAt(m_image, std::exchange(m_at, m_at + there));
    }
    void SetEnd(std::size_t end) { m_end = std::min(end, m_image.size()); }
    std::string_view Ahead(std::size_t size) const {
        return m_at < m_image.size() ? m_image.substr(m_at, std::min(size, m_end - m_at))
                                     : std::string_view();
    }

  private:
    std::string_view m_image;
    std::vector<ImageField>& m_fields;
    std::size_t m_at = 0;
    std::size_t m_end = m_image.size();
};

std::string Number(std::string_view bytes, const char* what) {
    return bytes.empty() ? std::string() : std::to_string(ByteAt(bytes, 0)) + " " + what;
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

void NameFields(std::string_view image, std::vector<ImageField>& fields) {
    FieldNamer namer(image, fields);
    if (image.size() >= kFrameSize) {
        namer.SetEnd(image.size() - 1);  // the last byte is the terminator
    }
    namer.Take(1, "TLV tag", "an NDEF message");
    namer.Take(1, "TLV length", Number(namer.Ahead(1), "bytes of records"));
    namer.Take(1, "URI record", "first record, short, well-known type");
    namer.Take(1, "URI type length");
    const std::size_t count = namer.Take(1, "URI payload length",
                                         Number(namer.Ahead(1), "bytes, identifier code counted"));
    namer.Take(1, "URI type", Text(namer.Ahead(1)));
    if (count > 0) {
        namer.Take(1, "URI identifier code", namer.Ahead(1) == "\x04" ? "https://" : "");
        namer.Take(count - 1, "URI text", Text(namer.Ahead(count - 1)));
    }
    namer.Take(1, "media record", "last record, short, media type");
    const std::size_t typeLen = namer.Take(1, "media type length", Number(namer.Ahead(1), "bytes"));
    const std::size_t body = namer.Take(1, "media payload length", Number(namer.Ahead(1), "bytes"));
    namer.Take(typeLen, "media type", Text(namer.Ahead(typeLen)));
    std::size_t left = body;
    constexpr std::pair<std::size_t, const char*> kParts[] = {{kVersionSize, "version"},
                                                              {kMacSize, "MAC address"},
                                                              {kNumberSize, "random number"},
                                                              {kModelSize, "PC model"}};
    for (const auto& [size, name] : kParts) {
        namer.Take(std::min(size, left), name);
        left -= std::min(size, left);
    }
    namer.Take(left, "payload after the model", "not checked");
    namer.Take(image.size(), "after the records", "not checked");
    namer.SetEnd(image.size());
    namer.Take(1, "terminator");
}

std::vector<std::string> Remarks(std::string_view image) {
    std::vector<std::string> remarks;
    const std::size_t end = kPayloadOffset + ByteAt(image, kLengthOffset);
    const std::size_t second = SecondRecord(image);
    const std::size_t typeLen = ByteAt(image, second + kTypeLenOffset);
    const std::size_t count = ByteAt(image, second + kBodyCountOffset);
    const std::string_view type = image.substr(second + kTypeOffset, typeLen);
    const std::size_t body = second + kTypeOffset + typeLen;
    const std::string_view uriType = image.substr(kPayloadOffset + kTypeOffset, 1);
    if (uriType != g_uriType) {
        remarks.push_back("URI type is " + Text(uriType) + ", not \"U\"");
    }
    if (type != g_mimeType) {
        remarks.push_back("media type is not " + Text(g_mimeType));
    }
    if (ByteAt(image, body) != kVersionMark || ByteAt(image, body + 1) != kVersionMinor) {
        remarks.push_back("version is " + ToHex(image.substr(body, kVersionSize), true) +
                          ", not 80 64");
    }
    if (count > kBodySize) {
        remarks.push_back("media payload length is " + std::to_string(count) + ", not " +
                          std::to_string(kBodySize));
    }
    if (body + count != end) {
        remarks.push_back("the records end at offset " + std::to_string(body + count) +
                          ", the message at " + std::to_string(end));
    }
    if (const auto other = Other(image, end, "terminator is ", kTerminatorTag)) {
        remarks.push_back(other->check);
    }
    return remarks;
}

}  // namespace

std::string_view ImageIn(std::string_view memory) {
    return memory.size() <= kLengthOffset
               ? memory
               : memory.substr(0, ByteAt(memory, kLengthOffset) + kFrameSize);
}

ImageNotes AnnotateImage(std::string_view image) {
    ImageNotes notes;
    NameFields(image, notes.fields);
    for (const auto check : {FrameFault, UriFault, MimeFault}) {
        notes.fault = check(image);
        if (notes.fault) {
            return notes;
        }
    }
    notes.remarks = Remarks(image);
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
