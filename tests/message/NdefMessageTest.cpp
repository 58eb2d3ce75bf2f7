// The message as a value: limits of its fields, and arrays that are not there.
#include <gtest/gtest.h>

#include "tests/message/MessageState.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/NoArray.h"

namespace {

using testing_support::LogRecorder;
using Texts = std::vector<std::string>;

const std::string kZeros(4, '\0');

TEST(NdefMessage, StartsEmptyAndCopiesAllFields) {
    EXPECT_EQ(StateOf(NdefMessage()), State("", 0, 0, kZeros, 0));
    NdefMessage message = FilledMessage();
    EXPECT_EQ(StateOf(message), kFilledState);
    EXPECT_EQ(message.SetPcType(255), 0);
    NdefMessage assigned;
    assigned = message;
    EXPECT_EQ(message.SetMac({4, 4, 4, 4, 4, 4}), 0);
    EXPECT_EQ(StateOf(assigned), State("old", 1, 2, "\3\3\3\3", 255));
    EXPECT_EQ(StateOf(message), State("old", 4, 2, "\3\3\3\3", 255));
}

TEST(NdefMessage, StoresUrlsOf1To255BytesInSilence) {
    LogRecorder log;
    for (const auto& [size, result] : {std::pair{1, 0}, {255, 0}, {256, -1}, {0, -1}}) {
        SCOPED_TRACE(size);
        NdefMessage message = FilledMessage();
        const std::string url(static_cast<std::size_t>(size), '\0');
        EXPECT_EQ(message.SetUrl(url), result);
        std::string stored;
        EXPECT_EQ(message.GetUrl(stored), 0);
        EXPECT_EQ(stored, result == 0 ? url : "old");
    }
    EXPECT_EQ(log.Texts(), Texts{});
}

TEST(NdefMessage, AnswersArraysThatAreNotThere) {
    LogRecorder log;
    NdefMessage message = FilledMessage();
    EXPECT_EQ(message.GetMac(NoArray<std::uint8_t, 6>()), -1);
    EXPECT_EQ(message.GetModel(NoArray<std::uint8_t, 4>()), -1);
    EXPECT_EQ(log.TakeUnannounced(), (Texts{"GetMac memcpy_s fail", "GetModel memcpy_s fail"}));
    EXPECT_EQ(message.GetRandomNumber(NoArray<std::uint8_t, 32>()), -1);
    EXPECT_EQ(log.TakeUnannounced().size(), 1U);
    EXPECT_EQ(StateOf(message), kFilledState);

    EXPECT_EQ(message.SetMac(NoArray<const std::uint8_t, 6>()), -1);
    EXPECT_EQ(message.SetRandomNumber(NoArray<const std::uint8_t, 32>()), -1);
    EXPECT_EQ(message.SetModel(NoArray<const std::uint8_t, 4>()), -1);
    EXPECT_EQ(log.TakeUnannounced(), (Texts{"SetMac memcpy_s fail", "SetRandomNumber memcpy_s fail",
                                            "SetModel memcpy_s fail"}));
    EXPECT_EQ(StateOf(message), State("old", 0, 0, kZeros, 0));
}

}  // namespace
