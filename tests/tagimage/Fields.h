// The fields of an image, and the image that is built of them.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "tagimage/NfcData.h"

namespace testing_support {

/// As byte strings. By default each field has a value of its own: an image of 105 bytes.
struct Fields {
    std::string url = "tag/abcd1234";
    std::string mac = "\x02\x11\x22\x33\x44\x55";
    std::string number = "\x1F\x1E\x1D\x1C\x1B\x1A\x19\x18zyxwvutsrqponmlkjihgfedc";
    std::string model{0, 0, 8, 0};
};

template <std::size_t Size>
const std::uint8_t (&Array(const std::string& bytes))[Size] {
    EXPECT_EQ(bytes.size(), Size);
    return *reinterpret_cast<const std::uint8_t(*)[Size]>(bytes.data());
}

inline NfcData Build(const Fields& fields = {}) {
    NfcData data;
    EXPECT_TRUE(data.Init() && data.InitValue() && data.SetMacAddr(Array<6>(fields.mac)) &&
                data.SetUrl(fields.url) && data.SetRandomNumber(Array<32>(fields.number)) &&
                data.SetModel(Array<4>(fields.model)));
    return data;
}

inline void ExpectFields(const NfcData& data, const Fields& expected) {
    EXPECT_EQ(data.GetUrl(), expected.url);
    EXPECT_EQ(data.GetMacAddr(), expected.mac);
    EXPECT_EQ(data.GetRandomNumber(), expected.number);
    EXPECT_EQ(data.GetModel(), expected.model);
}

/// Random ones, the URL of this size.
inline Fields RandomFields(std::size_t urlSize, std::mt19937& random) {
    Fields fields;
    fields.url.resize(urlSize);
    for (std::string* const field : {&fields.url, &fields.mac, &fields.number, &fields.model}) {
        std::generate(field->begin(), field->end(), [&] { return static_cast<char>(random()); });
    }
    return fields;
}

}  // namespace testing_support
