// Any bytes, or hexadecimal text of them, as a tag image: the library and the lab's annotator,
// which was written beside it, both refuse it or take it, and what is taken survives being built
// again.
#include <array>

#include "fuzz/Check.h"
#include "lab/Failure.h"
#include "lab/Hex.h"
#include "lab/ImageNotes.h"
#include "tagimage/ImageGeometry.h"
#include "tagimage/NfcData.h"

namespace {

using Fields = std::array<std::string, 4>;

Fields FieldsOf(const NfcData& data) {
    return {data.GetUrl(), data.GetMacAddr(), data.GetRandomNumber(), data.GetModel()};
}

template <std::size_t Size>
void Set(NfcData& data, bool (NfcData::*set)(const std::uint8_t (&)[Size]),
         const std::string& bytes) {
    std::uint8_t field[Size];
    Check(bytes.copy(reinterpret_cast<char*>(field), Size) == Size && (data.*set)(field),
          "a field that was read has its width and can be set");
}

/// Builds the image of `data`, which another object must take with the same fields.
void BuildAndRead(const NfcData& data) {
    const std::string image = data.GetContent();
    NfcData again;
    Check(again.Init() && again.Parse(image), "an image that was built is taken");
    Check(FieldsOf(again) == FieldsOf(data), "with the same fields");
    Check(again.GetContent() == image, "an image that was built repeats itself");
}

std::string BytesOf(const std::string& text) {
    try {
        std::string bytes = lab::FromHex(text, "input");
        Check(lab::FromHex(lab::ToHex(bytes), "again") == bytes, "hexadecimal text comes back");
        Check(lab::FromHex(lab::ToHex(bytes, true), "again") == bytes, "and so with blanks");
        return bytes;
    } catch (const lab::WrongCall& refused) {
        Check(std::string(refused.what()).substr(0, 6) == "input:", "a refusal names its origin");
        return text;
    }
}

void Try(const std::string& image) {
    const lab::ImageNotes notes = lab::AnnotateImage(image);
    std::size_t at = 0;
    for (const lab::ImageField& field : notes.fields) {
        Check(field.offset == at && field.size > 0, "fields follow each other");
        at += field.size;
    }
    Check(at == image.size(), "fields cover every byte");
    Check(!notes.fault || notes.fault->offset <= image.size(), "a fault lies in the image");
    NfcData data;
    Check(data.Init(), "the parts are made");
    const bool taken = data.Parse(image);
    Check(taken == !notes.fault, "annotator and library agree");
    if (!taken) {
        return;
    }
    // By the writer, from the fields.
    NfcData made;
    const bool fits = data.GetUrl().size() <= imageformat::kMaxUriSize;
    Check(made.Init() && made.InitValue() && made.SetUrl(data.GetUrl()) == fits,
          "a URL that fits is taken, and no other");
    if (fits) {
        Set(made, &NfcData::SetMacAddr, data.GetMacAddr());
        Set(made, &NfcData::SetRandomNumber, data.GetRandomNumber());
        Set(made, &NfcData::SetModel, data.GetModel());
        Check(FieldsOf(made) == FieldsOf(data), "fields that were set are those that were read");
        BuildAndRead(made);
    }
    // By the object that was read, with its version, types and terminator, less what nobody read.
    Check(data.CaculateLength(), "an image that was read fits");
    BuildAndRead(data);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    constexpr std::size_t kLength = 1;
    constexpr std::size_t kUncounted = 3;
    std::string image = BytesOf(AsText(bytes, size));
    Try(image);
    // Once more with the length that it has, since few inputs have the right one.
    if (image.size() >= kUncounted) {
        image[kLength] = static_cast<char>(image.size() - kUncounted);
        Try(image);
    }
    return 0;
}
