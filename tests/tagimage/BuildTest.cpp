// What the builder puts on a tag, and which texts it refuses.
#include <gtest/gtest.h>

#include "tests/support/LogRecorder.h"
#include "tests/support/NoArray.h"
#include "tests/tagimage/ImageFields.h"

namespace {

using testing_support::LogRecorder;
using Texts = std::vector<std::string>;

std::string FromHex(const std::string& hex) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

TEST(NfcDataBuild, MakesTheWorkedImageByteForByte) {
    const std::string expected = FromHex(
        "03669101"
        "0D55047461672F61626364313233345226"
        "2C6170706C69636174696F6E2F766E642E6F7276616E652E68616E646F66662E6E6465666D7367"
        "8064021122334455"
        "000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F"
        "00000800FE");
    ASSERT_EQ(expected.size(), 105U);
    LogRecorder log;
    EXPECT_EQ(Build(WorkedFields()).GetContent(), expected);
    EXPECT_EQ(log.Texts(),
              (Texts{"m_uri size is 12", "bodyContent CaculateLength() 44",
                     "m_uri (payload) length is 12", "nfcBody (payload) length is 44"}));
}

TEST(NfcDataBuild, ShowsItsStagesInTheBytes) {
    LogRecorder log;
    NfcData data;
    const std::string zeros(42, '\0');
    EXPECT_EQ(data.GetContent(), std::string("\0\0\x04\xFE", 4));
    EXPECT_FALSE(data.InitValue());
    EXPECT_FALSE(data.SetUrl("x"));
    EXPECT_FALSE(data.SetMacAddr({1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(data.GetMacAddr() + data.GetRandomNumber() + data.GetModel(), "");

    ASSERT_TRUE(data.Init());
    EXPECT_EQ(data.GetContent(),
              std::string("\0\x33\0\0\x01\x04\0\0\x2C\x80\x64", 11) + zeros + '\xFE');
    ASSERT_TRUE(data.InitValue());
    const std::string empty = data.GetContent();
    EXPECT_EQ(empty.substr(0, 7), std::string("\x03\x5A\x91\x01\x01\x55\x04", 7));
    EXPECT_EQ(empty.size(), 93U);
}

TEST(NfcDataBuild, BoundsTheUri) {
    struct Case {
        std::size_t size;
        bool fits;
        bool stored;
    };
    for (const auto& [size, fits, stored] :
         {Case{0, true, true}, Case{1, true, true}, Case{162, true, true}, Case{163, false, true},
          Case{252, false, true}, Case{253, false, false}}) {
        SCOPED_TRACE(size);
        NfcData data = Build(WorkedFields());
        LogRecorder log;
        const std::string url(size, 'u');
        EXPECT_EQ(data.SetUrl(url), fits);
        Texts told;
        if (stored) {
            told.push_back("m_uri size is " + std::to_string(size));
        }
        Texts errors;
        if (stored && !fits) {
            errors.push_back("length error");
            told.push_back("length error");
        }
        EXPECT_EQ(log.Texts(), told);
        EXPECT_EQ(log.TakeUnannounced(), errors);
        EXPECT_EQ(data.GetUrl(), stored ? url : "tag/abcd1234");
        const std::string image = data.GetContent();
        const std::size_t shown = data.GetUrl().size();
        // A refused text leaves the old TLV length and yet counts in the record's own length.
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

}  // namespace
