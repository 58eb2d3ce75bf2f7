// The tag image: what the builder puts on a tag, and what the reader makes of good and bad images.
#include "tests/support/LogRecorder.h"
#include "tests/support/NoArray.h"
#include "tests/tagimage/Fields.h"

namespace {

using namespace testing_support;

TEST(NfcDataBuild, MakesTheWorkedImageByteForByte) {
    LogRecorder log;
    const std::string before =
        "\x03\x66\x91\x01\x0DU\x04tag/abcd1234R&,application/vnd.orvane.handoff.ndefmsg"
        "\x80\x64\x02\x11\x22\x33\x44\x55";
    EXPECT_EQ(Build().GetContent(), before + Fields().number + std::string("\0\0\x08\0\xFE", 5));
    EXPECT_EQ(log.TextsSoFar(),
              (Texts{"m_uri size is 12", "bodyContent CaculateLength() 44",
                     "m_uri (payload) length is 12", "nfcBody (payload) length is 44"}));
}

TEST(NfcDataBuild, BoundsTheUri) {
    for (const std::size_t size : {0U, 1U, 162U, 163U, 252U, 253U}) {
        SCOPED_TRACE(size);
        const bool fits = size <= 162;
        const bool stored = size <= 252;
        NfcData data = Build();
        LogRecorder log;
        const std::string url(size, 'u');
        EXPECT_EQ(data.SetUrl(url), fits);
        EXPECT_EQ(data.GetUrl(), stored ? url : Fields().url);
        const Texts errors(stored && !fits ? 1 : 0, "length error");
        EXPECT_EQ(log.TakeUnannounced(), errors);
        // A refused text leaves the old TLV length and yet counts in the record's own length.
        const std::string image = data.GetContent();
        EXPECT_EQ(static_cast<std::uint8_t>(image[1]), (fits ? size : 12) + 90);
        EXPECT_EQ(static_cast<std::uint8_t>(image[4]), data.GetUrl().size() + 1);
        // The other fields are stored and then refused until the text fits again.
        EXPECT_EQ(data.FitsOnTag(), fits || !stored);
        EXPECT_EQ(data.SetModel({1, 1, 1, 1}), fits || !stored);
        EXPECT_EQ(data.GetModel(), "\x01\x01\x01\x01");
        EXPECT_EQ(log.TakeUnannounced(), errors);
    }
}

TEST(NfcDataParse, TakesBackEveryImageThatCanBeBuilt) {
    std::mt19937 random(20);
    for (std::size_t size = 0; size <= 162; ++size) {
        const Fields fields = RandomFields(size, random);
        const std::string image = Build(fields).GetContent();
        NfcData read;
        ASSERT_TRUE(read.Init() && read.Parse(image)) << size;
        ExpectFields(read, fields);
        EXPECT_EQ(read.GetContent(), image);
    }
}

// Offsets in the payload of the default image: everything between length and terminator.
constexpr std::size_t kMime = 17;
constexpr std::size_t kMimeType = kMime + 3;
constexpr std::size_t kBody = kMimeType + 38;
constexpr std::size_t kSize = kBody + 44;

std::string ImageOf(const std::string& payload) {
    return std::string{'\x03', static_cast<char>(payload.size())} + payload + '\xFE';
}

std::string FirstBytes(std::size_t size) {
    return Build().GetContent().substr(2, size);
}

// The default image with another byte at one place of its payload.
std::string With(std::size_t offset, int byte) {
    std::string payload = FirstBytes(kSize);
    payload[offset] = static_cast<char>(byte);
    return ImageOf(payload);
}

TEST(NfcDataParse, RefusesMalformedImagesWithTheMessageOfTheCheck) {
    const std::string whole = Build().GetContent();
    const std::string header = "NFC  HeaderParse error";
    const std::string mime = "Parse NFC record mime Type error";
    const struct {
        const char* what;
        std::string image;
        Texts errors;
    } cases[] = {
        {"2 bytes", std::string("\x04\0", 2), {}},
        {"256 bytes", std::string("\x03\xFD") + std::string(254, 'x'), {}},
        {"tag", "\x04" + whole.substr(1), {"NFC Parse tag type is err : 04"}},
        {"length above 253", "\x03\xFE" + std::string(253, 'x'), {}},
        {"one byte less", whole.substr(0, whole.size() - 1), {}},
        {"payload of 3", ImageOf(FirstBytes(3)), {}},
        {"single record", With(0, 0xD1), {"Parse URI record type error : D1", header}},
        {"type above record", With(1, kSize + 1), {"Parse NFC typeLen error : 67", header}},
        {"type as long as record", With(1, kSize), {"NfcHead parse failed 2", header}},
        {"type length of 2", With(1, 2), {"NfcHead parse failed 2", header}},
        {"no URI payload", With(2, 0), {"Parse NFC bodyCount error : 00", header}},
        {"URI above record", With(2, kSize + 1), {"Parse NFC bodyCount error : 67", header}},
        {"prefix", With(4, 3), {"Parse NFC record uri Type error", header}},
        {"no prefix", ImageOf("\x91\x01\x01U"), {"Parse NFC record uri Type error", header}},
        {"terminator for prefix",
         "\x03\x04\x91\x01\x01U\x04",
         {"Parse NFC record uri Type error", header}},
        {"URI ends one after payload", With(2, kSize - 3), {}},
        {"URI fills payload", With(2, kSize - 4), {"Parse NFC record type error", mime}},
        {"second record of 2", ImageOf(FirstBytes(kMime + 2)), {mime}},
        {"second record type", With(kMime, 0x51), {"Parse NFC record type error", mime}},
        {"media type fills record", With(kMime + 1, 82), {mime}},
        {"no media type", With(kMime + 1, 0), {"NfcHead parse failed 1", mime}},
        {"body length of 43", With(kMime + 2, 43), {mime}},
        {"body cut", ImageOf(FirstBytes(kSize - 1)), {mime}},
    };
    LogRecorder log;
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        NfcData data;
        EXPECT_TRUE(data.Init() && !data.Parse(each.image));
        EXPECT_EQ(log.TakeUnannounced(), each.errors);
    }
    EXPECT_FALSE(NfcData().Parse(whole)) << "without parts";
    log.TakeUnannounced();
}

TEST(NfcDataParse, TakesWhatNoReaderLooksAt) {
    std::string otherTypes = With(3, 'T');
    otherTypes[2 + kMimeType] = 'X';
    std::string otherEnd = Build().GetContent();
    otherEnd.back() = '\0';
    for (const std::string& image : {otherTypes, otherEnd, With(kBody, 7),
                                     ImageOf(FirstBytes(kSize) + "tail"), With(kMime + 2, 0xFF)}) {
        NfcData data;
        EXPECT_TRUE(data.Init() && data.Parse(image));
        ExpectFields(data, {});
        EXPECT_EQ(data.GetContent().back(), image.back());
    }
}

TEST(NfcDataBuild, RefusesFieldsWithoutAnArrayOrWithoutAnImage) {
    LogRecorder log;
    NfcData data = Build();
    EXPECT_FALSE(data.SetMacAddr(NoArray<const std::uint8_t, 6>()));
    EXPECT_FALSE(data.SetRandomNumber(NoArray<const std::uint8_t, 32>()));
    EXPECT_FALSE(data.SetModel(NoArray<const std::uint8_t, 4>()));
    EXPECT_EQ(log.TakeUnannounced(),
              (Texts{"SetMac memcpy_s fail", "NfcBody: SetMacAddr failed",
                     "SetRandomNumber memcpy_s fail", "NfcBody: SetRandomNumber failed",
                     "SetModel memcpy_s fail", "NfcBody: SetModel failed"}));
    NfcData without;
    EXPECT_FALSE(without.InitValue() || without.CaculateLength() || without.FitsOnTag() ||
                 without.SetUrl("u") || without.SetMacAddr({1, 1, 1, 1, 1, 1}) ||
                 without.SetModel({1, 1, 1, 1}) || without.SetRandomNumber({1}));
    EXPECT_EQ(without.GetContent(), std::string("\0\0\4\xFE", 4));
    EXPECT_EQ(without.GetMacAddr() + without.GetRandomNumber() + without.GetModel(), "");
}

}  // namespace
