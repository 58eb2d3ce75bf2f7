// What a copy or a clear does that does not fit its destination.
#include "platform/BoundedMemory.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

TEST(BoundedMemory, WritesNothingAfterItsDestinationAndReportsIt) {
    std::string bytes(8, 'x');
    const auto left = [&bytes] { return std::exchange(bytes, std::string(8, 'x')); };
    EXPECT_EQ(platform::memcpy_s(bytes.data(), 4, "abcd", 4), 0);
    EXPECT_EQ(left(), "abcdxxxx");
    EXPECT_NE(platform::memcpy_s(bytes.data(), 4, "abcd", 5), 0);
    EXPECT_EQ(left(), std::string(4, '\0') + "xxxx");
    EXPECT_NE(platform::memcpy_s(bytes.data(), 1, nullptr, 1), 0);
    EXPECT_EQ(left()[0], '\0');
    EXPECT_NE(platform::memcpy_s(nullptr, 1, "a", 1), 0);
    EXPECT_EQ(platform::memset_s(bytes.data(), 4, '-', 3), 0);
    EXPECT_EQ(left(), "---xxxxx");
    EXPECT_NE(platform::memset_s(bytes.data(), 4, '-', 5), 0);
    EXPECT_EQ(left(), "----xxxx");
    EXPECT_NE(platform::memset_s(nullptr, 1, 0, 1), 0);
}

}  // namespace
