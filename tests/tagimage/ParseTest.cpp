// What the reader makes of images: those that the builder makes, malformed ones and mutated ones.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "tests/support/LogRecorder.h"
#include "tests/tagimage/ImageFields.h"

namespace {

using testing_support::LogRecorder;
using Texts = std::vector<std::string>;

using Edit = std::function<void(std::string&)>;

// Offsets in the payload of the worked image, which is everything between length and terminator.
constexpr std::size_t kMime = 17;
constexpr std::size_t kMimeType = kMime + 3;
constexpr std::size_t kBody = kMimeType + 38;
constexpr std::size_t kSize = kBody + 44;

std::string Seal(const std::string& payload, char terminator = '\xFE') {
    return std::string{'\x03', static_cast<char>(payload.size())} + payload + terminator;
}

std::string WorkedImage() {
    return Build(WorkedFields()).GetContent();
}

std::string Edited(const Edit& edit) {
    std::string payload = WorkedImage().substr(2, kSize);
    edit(payload);
    return Seal(payload);
}

Edit Put(std::size_t offset, int value) {
    return [=](std::string& payload) { payload[offset] = static_cast<char>(value); };
}

Edit Cut(std::size_t size) {
    return [=](std::string& payload) { payload.resize(size); };
}

TEST(NfcDataParse, TakesBackEveryImageThatCanBeBuilt) {
    LogRecorder log;
    std::mt19937 random(20);
    for (std::size_t size = 0; size <= 162; ++size) {
        SCOPED_TRACE(size);
        const ImageFields fields{RandomBytes(random, size), RandomBytes(random, 6),
                                 RandomBytes(random, 32), RandomBytes(random, 4)};
        const std::string image = Build(fields).GetContent();
        ASSERT_EQ(image.size(), size + 93);
        ASSERT_EQ(image.substr(size + 56, 32), fields.number);
        NfcData read;
        ASSERT_TRUE(read.Init());
        ASSERT_TRUE(read.Parse(image));
        EXPECT_EQ(FieldsOf(read), fields);
        EXPECT_EQ(read.GetContent(), image);
    }
}

TEST(NfcDataParse, RefusesMalformedImagesWithTheMessageOfTheCheck) {
    const std::string header = "NFC  HeaderParse error";
    const std::string mime = "Parse NFC record mime Type error";
    const std::string whole = WorkedImage();
    struct Case {
        const char* name;
        std::string image;
        Texts errors;
    };
    const std::vector<Case> cases = {
        {"nothing", "", {}},
        {"2 bytes", std::string("\x04\0", 2), {}},
        {"256 bytes", std::string("\x03\xFD") + std::string(254, 'x'), {}},
        {"tag", "\x04" + whole.substr(1), {"NFC Parse tag type is err : 04"}},
        {"length above 253", "\x03\xFE" + std::string(253, 'x'), {}},
        {"one byte more", whole + '\xFE', {}},
        {"one byte less", whole.substr(0, whole.size() - 1), {}},
        {"no payload", Seal(""), {}},
        {"payload of 3", Edited(Cut(3)), {}},
        {"single record", Edited(Put(0, 0xD1)), {"Parse URI record type error : D1", header}},
        {"type length above record",
         Edited(Put(1, kSize + 1)),
         {"Parse NFC typeLen error : 67", header}},
        {"type length of 2", Edited(Put(1, 2)), {"NfcHead parse failed 2", header}},
        {"no URI payload", Edited(Put(2, 0)), {"Parse NFC bodyCount error : 00", header}},
        {"URI above record", Edited(Put(2, kSize + 1)), {"Parse NFC bodyCount error : 67", header}},
        {"identifier code", Edited(Put(4, 3)), {"Parse NFC record uri Type error", header}},
        {"no identifier code", Seal("\x91\x01\x01U"), {"Parse NFC record uri Type error", header}},
        {"terminator in the code's place",
         "\x03\x04\x91\x01\x01U\x04",
         {"Parse NFC record uri Type error", header}},
        {"URI ends behind payload", Edited(Put(2, kSize)), {}},
        {"URI ends one behind payload", Edited(Put(2, kSize - 3)), {}},
        {"URI fills payload", Edited(Put(2, kSize - 4)), {"Parse NFC record type error", mime}},
        {"second record of 1", Edited(Cut(kMime + 1)), {mime}},
        {"second record of 2", Edited(Cut(kMime + 2)), {mime}},
        {"second record type", Edited(Put(kMime, 0x51)), {"Parse NFC record type error", mime}},
        {"media type cut", Edited(Cut(kBody - 1)), {mime}},
        {"media type above record", Edited(Put(kMime + 1, 83)), {mime}},
        {"media type fills record", Edited(Put(kMime + 1, 82)), {mime}},
        {"no media type", Edited(Put(kMime + 1, 0)), {"NfcHead parse failed 1", mime}},
        {"body length of 43", Edited(Put(kMime + 2, 43)), {mime}},
        {"body cut", Edited(Cut(kSize - 1)), {mime}},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        NfcData data;
        ASSERT_TRUE(data.Init());
        LogRecorder log;
        EXPECT_FALSE(data.Parse(each.image));
        EXPECT_EQ(log.TakeUnannounced(), each.errors);
        // Without parts the same images, and a sound one, end in the same way.
        NfcData bare;
        EXPECT_FALSE(bare.Parse(each.image));
        EXPECT_FALSE(bare.Parse(whole));
        log.TakeUnannounced();
    }
}

TEST(NfcDataParse, TakesWhatNoReaderLooksAt) {
    const std::vector<std::pair<const char*, Edit>> edits = {
        {"record types", [](std::string& p) { p[3] = 'T', p[kMimeType] = 'X'; }},
        {"version", [](std::string& p) { p[kBody] = 0, p[kBody + 1] = 1; }},
        {"longer body", [](std::string& p) { p += '!', p[kMime + 2] = 45; }},
        {"bytes behind the record", [](std::string& p) { p += "tail"; }},
        {"body length above record", Put(kMime + 2, 0xFF)},
    };
    for (const auto& [name, edit] : edits) {
        SCOPED_TRACE(name);
        std::string image = Edited(edit);
        image.back() = 'T';
        NfcData data;
        LogRecorder log;
        ASSERT_TRUE(data.Init());
        ASSERT_TRUE(data.Parse(image));
        EXPECT_EQ(FieldsOf(data), WorkedFields());
        const std::string again = data.GetContent();
        EXPECT_EQ(again.size(), kSize + 3);
        EXPECT_EQ(again.back(), 'T');
        EXPECT_EQ(again.substr(2 + kBody, 2), image.substr(2 + kBody, 2));
    }
}

TEST(NfcDataParse, LeavesWhatItReadBeforeAFailure) {
    LogRecorder log;
    NfcData data = Build({"old", std::string(6, 'm'), std::string(32, 'n'), std::string(4, 'o')});
    std::string image = Edited(Put(kMime + 2, 43));
    image.back() = 0;
    EXPECT_FALSE(data.Parse(image));
    EXPECT_EQ(FieldsOf(data), (ImageFields{"tag/abcd1234", std::string(6, 'm'),
                                           std::string(32, 'n'), std::string(4, 'o')}));
    EXPECT_EQ(data.GetContent().substr(0, 2), image.substr(0, 2));
    EXPECT_EQ(data.GetContent()[2 + kMime + 2], 43);
    EXPECT_EQ(data.GetContent().back(), '\xFE');
    EXPECT_EQ(log.TakeUnannounced().size(), 1U);

    NfcHead head;
    ASSERT_TRUE(head.Parse(std::string("\xAB\x01\x00T", 4)));
    EXPECT_FALSE(head.Parse("\xCD\x02\x05X"));
    EXPECT_FALSE(head.Parse("\xCD\x01\x05XY"));
    EXPECT_EQ(head.GetContent(), std::string("\xAB\x01\x00T", 4));

    NfcBody body;
    ASSERT_TRUE(body.Parse(std::string("\0\x64", 2) + std::string(43, 'b')));
    EXPECT_FALSE(body.Parse(std::string(43, 'c')));
    EXPECT_FALSE(body.Parse(std::string(256, 'c')));
    EXPECT_EQ(body.GetContent(), std::string("\0\x64", 2) + std::string(42, 'b'));
    log.TakeUnannounced();
    EXPECT_FALSE(body.IsInit());
    EXPECT_EQ(log.TakeUnannounced(), Texts{"NfcBody not init"});
}

TEST(NfcDataParse, SurvivesMutatedImages) {
    LogRecorder log;
    for (const char* refusal : {"NFC ", "NfcHead ", "Parse "}) {
        log.Announce(refusal);
    }
    std::mt19937 random(7);
    const auto below = [&random](std::size_t bound) { return random() % bound; };
    int accepted = 0;
    for (int round = 0; round < 20000; ++round) {
        SCOPED_TRACE(round);
        std::string image = Build({RandomBytes(random, below(163)), RandomBytes(random, 6),
                                   RandomBytes(random, 32), RandomBytes(random, 4)})
                                .GetContent();
        for (std::size_t edits = below(4); edits > 0; --edits) {
            // Half of the edits hit the heads, where the lengths are.
            const std::size_t at = below(2) == 0 ? below(8) : below(image.size());
            image[at] = static_cast<char>(random());
        }
        if (below(4) == 0) {
            image.resize(below(260));
            if (image.size() > 2 && below(2) == 0) {
                image[1] = static_cast<char>(image.size() - 3);
            }
        }
        NfcData data;
        ASSERT_TRUE(data.Init());
        if (!data.Parse(image)) {
            continue;
        }
        ++accepted;
        const ImageFields fields = FieldsOf(data);
        ASSERT_LE(fields.url.size(), 162U);
        NfcData again;
        ASSERT_TRUE(again.Init());
        ASSERT_TRUE(again.Parse(Build(fields).GetContent()));
        ASSERT_EQ(FieldsOf(again), fields);
        log.Clear();
    }
    // Neither everything nor nothing passed, or the loop above looked at one side only.
    EXPECT_GT(accepted, 2000);
    EXPECT_LT(accepted, 18000);
}

}  // namespace
