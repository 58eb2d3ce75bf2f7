// Any bytes as a tag image: refused or taken, and what is taken survives being built again.
#include "fuzz/Check.h"
#include "tagimage/NfcData.h"

namespace {

template <std::size_t Size>
void Set(NfcData& data, bool (NfcData::*set)(const std::uint8_t (&)[Size]),
         const std::string& bytes) {
    std::uint8_t field[Size];
    Check(bytes.copy(reinterpret_cast<char*>(field), Size) == Size, "a field has its width");
    Check((data.*set)(field), "a field that was read can be set");
}

void SameFields(const NfcData& left, const NfcData& right) {
    Check(left.GetUrl() == right.GetUrl(), "the same URL");
    Check(left.GetMacAddr() == right.GetMacAddr(), "the same address");
    Check(left.GetRandomNumber() == right.GetRandomNumber(), "the same number");
    Check(left.GetModel() == right.GetModel(), "the same model");
}

/// Reads `image` into an object of its own, which must take it with the fields of `data`.
void ReadsBack(const std::string& image, const NfcData& data) {
    NfcData again;
    Check(again.Init() && again.Parse(image), "an image that was built is taken");
    SameFields(data, again);
    Check(again.GetContent() == image, "an image that was built repeats itself");
}

void Try(const std::string& image) {
    NfcData data;
    Check(data.Init(), "the parts are made");
    if (!data.Parse(image)) {
        return;
    }
    // By the writer, from the fields.
    constexpr std::size_t kMostThatFits = 162;
    NfcData made;
    Check(made.Init() && made.InitValue(), "the parts are made");
    Check(made.SetUrl(data.GetUrl()) == (data.GetUrl().size() <= kMostThatFits),
          "a URL that fits is taken, and no other");
    if (data.GetUrl().size() <= kMostThatFits) {
        Set(made, &NfcData::SetMacAddr, data.GetMacAddr());
        Set(made, &NfcData::SetRandomNumber, data.GetRandomNumber());
        Set(made, &NfcData::SetModel, data.GetModel());
        SameFields(data, made);
        ReadsBack(made.GetContent(), made);
    }
    // By the object that was read, with its version, types and terminator, less what nobody read.
    Check(data.CaculateLength(), "an image that was read fits");
    ReadsBack(data.GetContent(), data);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    constexpr std::size_t kLength = 1;
    constexpr std::size_t kUncounted = 3;
    std::string image = AsText(bytes, size);
    Try(image);
    // Once more with the length that it has, since few inputs tell the right one.
    if (image.size() >= kUncounted) {
        image[kLength] = static_cast<char>(image.size() - kUncounted);
        Try(image);
    }
    return 0;
}
