// The tag image against another NDEF implementation, in both directions. Built where that one is
// installed.
#include "bench/Peer.h"
#include "tests/tagimage/Fields.h"

namespace {

using namespace testing_support;

TEST(Peer, EachReadsWhatTheOtherBuilds) {
    std::mt19937 random(1);
    for (std::size_t size = 0; size <= imageformat::kMaxUriSize; ++size) {
        SCOPED_TRACE(size);
        const Fields fields = RandomFields(size, random);
        const std::string image = Build(fields).GetContent();
        const std::string body = "\x80\x64" + fields.mac + fields.number + fields.model;
        const peer::Fields read = peer::Parse(image);
        EXPECT_EQ(read.uri, fields.url);
        EXPECT_EQ(read.type, g_mimeType);
        EXPECT_EQ(read.body, body);

        // Of any media type that fits, not only of the one that we build.
        const std::size_t room = imageformat::kMaxUriSize + g_mimeType.size() - size;
        const std::string type(std::min<std::size_t>(1 + random() % 60, room), 't');
        for (const std::string& one : {std::string(g_mimeType), type}) {
            const std::string theirs = peer::Build({fields.url, one, body});
            NfcData parsed;
            ASSERT_TRUE(parsed.Init() && parsed.Parse(theirs)) << one.size();
            ExpectFields(parsed, fields);
            EXPECT_EQ(parsed.GetContent(), theirs);
            EXPECT_EQ(theirs == image, one == g_mimeType);
        }
    }
}

}  // namespace
