// The tag image against another NDEF implementation, in both directions. Built where that one is
// installed.
#include <gtest/gtest.h>

#include <random>

#include "bench/Peer.h"
#include "tagimage/NfcData.h"

namespace {

template <std::size_t Size>
void Fill(std::uint8_t (&bytes)[Size], std::mt19937& random) {
    for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(random());
    }
}

TEST(Peer, EachReadsWhatTheOtherBuilds) {
    std::mt19937 random(1);
    for (std::size_t size = 0; size <= imageformat::kMaxUriSize; ++size) {
        SCOPED_TRACE(size);
        std::uint8_t mac[6];
        std::uint8_t number[32];
        std::uint8_t model[4];
        Fill(mac, random);
        Fill(number, random);
        Fill(model, random);
        std::string url(size, ' ');
        for (char& byte : url) {
            byte = static_cast<char>(random());
        }
        NfcData built;
        ASSERT_TRUE(built.Init() && built.InitValue() && built.SetMacAddr(mac) &&
                    built.SetUrl(url) && built.SetRandomNumber(number) && built.SetModel(model));
        const std::string body = std::string("\x80\x64") + built.GetMacAddr() +
                                 built.GetRandomNumber() + built.GetModel();

        const peer::Fields read = peer::Parse(built.GetContent());
        EXPECT_EQ(read.uri, url);
        EXPECT_EQ(read.type, g_mimeType);
        EXPECT_EQ(read.body, body);

        // Of any media type that fits, not only of the one that we build.
        const std::size_t room = imageformat::kMaxUriSize + g_mimeType.size() - size;
        const std::string type(std::min<std::size_t>(1 + random() % 60, room), 't');
        for (const std::string& one : {std::string(g_mimeType), type}) {
            const std::string theirs = peer::Build({url, one, body});
            NfcData parsed;
            ASSERT_TRUE(parsed.Init() && parsed.Parse(theirs)) << one.size();
            EXPECT_EQ(parsed.GetUrl(), url);
            EXPECT_EQ(parsed.GetMacAddr(), built.GetMacAddr());
            EXPECT_EQ(parsed.GetRandomNumber(), built.GetRandomNumber());
            EXPECT_EQ(parsed.GetModel(), built.GetModel());
            EXPECT_EQ(parsed.GetContent(), theirs);
            EXPECT_EQ(theirs == built.GetContent(), one == g_mimeType);
        }
    }
}

}  // namespace
