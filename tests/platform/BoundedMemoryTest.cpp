// What a copy or a clear does that does not fit its destination.
#include "platform/BoundedMemory.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

TEST(BoundedMemory, WritesNothingBehindItsDestinationAndReportsIt) {
    const char source[] = "abc";
    const struct {
        std::size_t size;
        const char* source;  // null: memset_s, with '-'
        std::size_t count;
        bool works;
        std::string_view left;
    } cases[] = {
        {4, source, 4, true, {"abc\0xxxx", 8}},
        {4, source, 5, false, {"\0\0\0\0xxxx", 8}},
        {4, nullptr, 3, true, "---xxxxx"},
        {4, nullptr, 5, false, "----xxxx"},
    };
    for (const auto& [size, from, count, works, left] : cases) {
        std::string bytes(8, 'x');
        const int result = from != nullptr ? platform::memcpy_s(bytes.data(), size, from, count)
                                           : platform::memset_s(bytes.data(), size, '-', count);
        EXPECT_EQ(result == 0, works) << left;
        EXPECT_EQ(bytes, left);
    }
    EXPECT_NE(platform::memset_s(nullptr, 1, 0, 1), 0);
    EXPECT_NE(platform::memcpy_s(nullptr, 1, source, 1), 0);
    std::string bytes = "xx";
    EXPECT_NE(platform::memcpy_s(bytes.data(), 1, nullptr, 1), 0);
    EXPECT_EQ(bytes, std::string_view("\0x", 2));
}

}  // namespace
