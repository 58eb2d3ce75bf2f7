// The tag image: what the builder puts on a tag, and what the reader makes of good and bad images.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <tuple>

#include "tagimage/NfcData.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/NoArray.h"

namespace {

using testing_support::LogRecorder;
using Texts = std::vector<std::string>;

// URL, address, number, model, as byte strings.
using ImageFields = std::tuple<std::string, std::string, std::string, std::string>;

ImageFields FieldsOf(const NfcData& data) {
    return {data.GetUrl(), data.GetMacAddr(), data.GetRandomNumber(), data.GetModel()};
}

template <std::size_t Size>
struct Bytes {
    explicit Bytes(const std::string& text) {
        EXPECT_EQ(text.copy(reinterpret_cast<char*>(value), Size), Size);
    }
    std::uint8_t value[Size] = {};
};

// An object on which Init, InitValue and the setters have been called. Fails the test if one
// fails.
NfcData Build(const ImageFields& fields) {
    const auto& [url, mac, number, model] = fields;
    NfcData data;
    EXPECT_TRUE(data.Init() && data.InitValue() && data.SetMacAddr(Bytes<6>(mac).value) &&
                data.SetUrl(url) && data.SetRandomNumber(Bytes<32>(number).value) &&
                data.SetModel(Bytes<4>(model).value));
    return data;
}

// 105 bytes: every field has a value of its own.
ImageFields WorkedFields() {
    std::string number;
    for (char byte = 0; byte < 32; ++byte) {
        number += byte;
    }
    return {"tag/abcd1234", "\x02\x11\x22\x33\x44\x55", number, std::string("\0\0\x08\0", 4)};
}

TEST(NfcDataBuild, MakesTheWorkedImageByteForByte) {
    LogRecorder log;
    EXPECT_EQ(Build(WorkedFields()).GetContent(),
              "\x03\x66\x91\x01\x0DU\x04tag/abcd1234"
              "R&,application/vnd.orvane.handoff.ndefmsg"
              "\x80\x64\x02\x11\x22\x33\x44\x55" +
                  std::get<2>(WorkedFields()) + std::string("\0\0\x08\0\xFE", 5));
    EXPECT_EQ(log.Texts(),
              (Texts{"m_uri size is 12", "bodyContent CaculateLength() 44",
                     "m_uri (payload) length is 12", "nfcBody (payload) length is 44"}));
}

TEST(NfcDataBuild, ShowsItsStagesInTheBytes) {
    LogRecorder log;
    NfcData data;
    EXPECT_EQ(data.GetContent(), std::string("\0\0\x04\xFE", 4));
    EXPECT_FALSE(data.InitValue() || data.SetUrl("x") || data.SetMacAddr({1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(data.GetMacAddr() + data.GetRandomNumber() + data.GetModel(), "");
    ASSERT_TRUE(data.Init());
    EXPECT_EQ(data.GetContent(), std::string("\0\x33\0\0\x01\x04\0\0\x2C\x80\x64", 11) +
                                     std::string(42, '\0') + '\xFE');
    ASSERT_TRUE(data.InitValue());
    EXPECT_EQ(data.GetContent().substr(0, 7), std::string("\x03\x5A\x91\x01\x01\x55\x04", 7));
    EXPECT_EQ(data.GetContent().size(), 93U);
}

TEST(NfcDataBuild, BoundsTheUri) {
    for (const std::size_t size : {0U, 1U, 162U, 163U, 252U, 253U}) {
        SCOPED_TRACE(size);
        const bool fits = size <= 162;
        const bool stored = size <= 252;
        NfcData data = Build(WorkedFields());
        LogRecorder log;
        const std::string url(size, 'u');
        EXPECT_EQ(data.SetUrl(url), fits);
        EXPECT_EQ(data.GetUrl(), stored ? url : "tag/abcd1234");
        const Texts errors(stored && !fits ? 1 : 0, "length error");
        EXPECT_EQ(log.TakeUnannounced(), errors);
        // A refused text leaves the old TLV length and yet counts in the record's own length.
        const std::string image = data.GetContent();
        const std::size_t shown = data.GetUrl().size();
        EXPECT_EQ(static_cast<std::uint8_t>(image[1]), (fits ? size : 12) + 90);
        EXPECT_EQ(static_cast<std::uint8_t>(image[4]), shown + 1);
        EXPECT_EQ(image.size(), shown + 93);
        // The other fields are stored and then refused until the text fits again.
        EXPECT_EQ(data.SetModel({1, 1, 1, 1}), fits || !stored);
        EXPECT_EQ(data.GetModel(), "\x01\x01\x01\x01");
        EXPECT_EQ(log.TakeUnannounced(), errors);
    }
}

TEST(NfcDataBuild, ClearsAFieldWhoseNewValueIsNotThere) {
    NfcData data = Build(WorkedFields());
    LogRecorder log;
    EXPECT_FALSE(data.SetMacAddr(NoArray<const std::uint8_t, 6>()));
    EXPECT_FALSE(data.SetRandomNumber(NoArray<const std::uint8_t, 32>()));
    EXPECT_FALSE(data.SetModel(NoArray<const std::uint8_t, 4>()));
    EXPECT_EQ(log.TakeUnannounced(),
              (Texts{"SetMac memcpy_s fail", "NfcBody: SetMacAddr failed",
                     "SetRandomNumber memcpy_s fail", "NfcBody: SetRandomNumber failed",
                     "SetModel memcpy_s fail", "NfcBody: SetModel failed"}));
    EXPECT_EQ(data.GetMacAddr() + data.GetRandomNumber() + data.GetModel(), std::string(42, '\0'));
}

// Offsets in the payload of the worked image, which is everything between length and terminator.
constexpr std::size_t kMime = 17;
constexpr std::size_t kMimeType = kMime + 3;
constexpr std::size_t kBody = kMimeType + 38;
constexpr std::size_t kSize = kBody + 44;

std::string Seal(const std::string& payload) {
    return std::string{'\x03', static_cast<char>(payload.size())} + payload + '\xFE';
}

const std::string& Whole() {
    static const std::string image = Build(WorkedFields()).GetContent();
    return image;
}

std::string Put(std::size_t offset, int value, const std::string& behind = "") {
    std::string payload = Whole().substr(2, kSize) + behind;
    payload[offset] = static_cast<char>(value);
    return Seal(payload);
}

std::string Cut(std::size_t size) {
    return Seal(Whole().substr(2, size));
}

TEST(NfcDataParse, TakesBackEveryImageThatCanBeBuilt) {
    LogRecorder log;
    std::mt19937 random(20);
    std::string bytes(162 + 42, '\0');
    for (std::size_t size = 0; size <= 162; ++size) {
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
        const ImageFields fields{bytes.substr(42, size), bytes.substr(0, 6), bytes.substr(6, 32),
                                 bytes.substr(38, 4)};
        const std::string image = Build(fields).GetContent();
        NfcData read;
        ASSERT_TRUE(read.Init() && read.Parse(image)) << size;
        EXPECT_EQ(FieldsOf(read), fields);
        EXPECT_EQ(read.GetContent(), image);
    }
}

TEST(NfcDataParse, RefusesMalformedImagesWithTheMessageOfTheCheck) {
    const std::string header = "NFC  HeaderParse error";
    const std::string mime = "Parse NFC record mime Type error";
    const std::tuple<const char*, std::string, Texts> cases[] = {
        {"nothing", "", {}},
        {"2 bytes", std::string("\x04\0", 2), {}},
        {"256 bytes", std::string("\x03\xFD") + std::string(254, 'x'), {}},
        {"tag", "\x04" + Whole().substr(1), {"NFC Parse tag type is err : 04"}},
        {"length above 253", "\x03\xFE" + std::string(253, 'x'), {}},
        {"one byte more", Whole() + '\xFE', {}},
        {"one byte less", Whole().substr(0, Whole().size() - 1), {}},
        {"no payload", Seal(""), {}},
        {"payload of 3", Cut(3), {}},
        {"single record", Put(0, 0xD1), {"Parse URI record type error : D1", header}},
        {"type above record", Put(1, kSize + 1), {"Parse NFC typeLen error : 67", header}},
        {"type length of 2", Put(1, 2), {"NfcHead parse failed 2", header}},
        {"no URI payload", Put(2, 0), {"Parse NFC bodyCount error : 00", header}},
        {"URI above record", Put(2, kSize + 1), {"Parse NFC bodyCount error : 67", header}},
        {"prefix", Put(4, 3), {"Parse NFC record uri Type error", header}},
        {"no prefix", Seal("\x91\x01\x01U"), {"Parse NFC record uri Type error", header}},
        {"terminator for prefix",
         "\x03\x04\x91\x01\x01U\x04",
         {"Parse NFC record uri Type error", header}},
        {"URI ends behind payload", Put(2, kSize), {}},
        {"URI ends one behind payload", Put(2, kSize - 3), {}},
        {"URI fills payload", Put(2, kSize - 4), {"Parse NFC record type error", mime}},
        {"second record of 1", Cut(kMime + 1), {mime}},
        {"second record of 2", Cut(kMime + 2), {mime}},
        {"second record type", Put(kMime, 0x51), {"Parse NFC record type error", mime}},
        {"media type cut", Cut(kBody - 1), {mime}},
        {"media type above record", Put(kMime + 1, 83), {mime}},
        {"media type fills record", Put(kMime + 1, 82), {mime}},
        {"no media type", Put(kMime + 1, 0), {"NfcHead parse failed 1", mime}},
        {"body length of 43", Put(kMime + 2, 43), {mime}},
        {"body cut", Cut(kSize - 1), {mime}},
    };
    for (const auto& [name, image, errors] : cases) {
        SCOPED_TRACE(name);
        NfcData data;
        LogRecorder log;
        EXPECT_TRUE(data.Init() && !data.Parse(image));
        EXPECT_EQ(log.TakeUnannounced(), errors);
        NfcData bare;
        EXPECT_FALSE(bare.Parse(image) || bare.Parse(Whole())) << "without parts";
        log.TakeUnannounced();
    }
}

TEST(NfcDataParse, TakesWhatNoReaderLooksAt) {
    std::string types = Put(3, 'T');
    types[2 + kMimeType] = 'X';
    for (std::string image : {types, Put(kBody, 7), Put(kMime + 2, 45, "!"), Put(3, 'U', "tail"),
                              Put(kMime + 2, 0xFF)}) {
        image.back() = 'T';
        SCOPED_TRACE(image);
        NfcData data;
        LogRecorder log;
        ASSERT_TRUE(data.Init() && data.Parse(image));
        EXPECT_EQ(FieldsOf(data), WorkedFields());
        EXPECT_EQ(data.GetContent().size(), kSize + 3);
        EXPECT_EQ(data.GetContent().back(), 'T');
        EXPECT_EQ(data.GetContent().substr(2 + kBody, 2), image.substr(2 + kBody, 2));
    }
}

TEST(NfcDataParse, LeavesWhatItReadBeforeAFailure) {
    LogRecorder log;
    const std::string mac(6, 'm'), number(32, 'n'), model(4, 'o');
    NfcData data = Build({"old", mac, number, model});
    std::string image = Put(kMime + 2, 43);
    image.back() = 0;
    EXPECT_FALSE(data.Parse(image));
    EXPECT_EQ(FieldsOf(data), (ImageFields{"tag/abcd1234", mac, number, model}));
    EXPECT_EQ(data.GetContent().substr(0, 2), image.substr(0, 2));
    EXPECT_EQ(data.GetContent()[2 + kMime + 2], 43);
    EXPECT_EQ(data.GetContent().back(), '\xFE') << "the terminator is the last to be read";

    NfcHead head;
    ASSERT_TRUE(head.Parse(std::string("\xAB\x01\x00T", 4)));
    EXPECT_FALSE(head.Parse("\xCD\x02\x05X") || head.Parse("\xCD\x01\x05XY"));
    EXPECT_EQ(head.GetContent(), std::string("\xAB\x01\x00T", 4));
    NfcBody body;
    ASSERT_TRUE(body.Parse(std::string("\0\x64", 2) + std::string(43, 'b')));
    EXPECT_FALSE(body.Parse(std::string(43, 'c')) || body.Parse(std::string(256, 'c')));
    EXPECT_EQ(body.GetContent(), std::string("\0\x64", 2) + std::string(42, 'b'));
    log.TakeUnannounced();
    EXPECT_FALSE(body.IsInit());
    EXPECT_EQ(log.TakeUnannounced(), Texts{"NfcBody not init"});
}

}  // namespace
