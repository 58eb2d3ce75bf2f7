// Any bytes as an image that a person looks at, as hexadecimal text where they are that. The
// annotator was written beside the library's reader, and both must come to the same verdict.
#include "fuzz/Check.h"
#include "lab/Failure.h"
#include "lab/Hex.h"
#include "lab/ImageCommand.h"
#include "lab/ImageNotes.h"

namespace {

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string image = BytesOf(AsText(bytes, size));
    const lab::ImageNotes notes = lab::AnnotateImage(image);
    Check(lab::AskLibrary(image).accepted == !notes.fault, "annotator and library agree");
    std::size_t at = 0;
    for (const lab::ImageField& field : notes.fields) {
        Check(field.offset == at && field.size > 0, "fields follow each other");
        at += field.size;
    }
    Check(at == image.size(), "fields cover every byte");
    Check(!notes.fault || notes.fault->offset <= image.size(), "a fault lies in the image");
    return 0;
}
