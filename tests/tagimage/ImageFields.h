// The fields of an image as a test sees them, and an array that is not there.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

#include "tagimage/NfcData.h"

/// The payload of the media-type record and the URI, as byte strings.
struct ImageFields {
    std::string url;
    std::string mac;
    std::string number;
    std::string model;

    bool operator==(const ImageFields& other) const {
        return url == other.url && mac == other.mac && number == other.number &&
               model == other.model;
    }
};

inline ImageFields FieldsOf(const NfcData& data) {
    return {data.GetUrl(), data.GetMacAddr(), data.GetRandomNumber(), data.GetModel()};
}

inline std::string RandomBytes(std::mt19937& random, std::size_t size) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

template <std::size_t Size>
struct Bytes {
    explicit Bytes(const std::string& text) {
        EXPECT_EQ(text.copy(reinterpret_cast<char*>(value), Size), Size);
    }
    std::uint8_t value[Size] = {};
};

/// An object on which Init, InitValue and the setters have been called. Fails the test if one
/// fails.
inline NfcData Build(const ImageFields& fields) {
    NfcData data;
    EXPECT_TRUE(data.Init() && data.InitValue() && data.SetMacAddr(Bytes<6>(fields.mac).value) &&
                data.SetUrl(fields.url) && data.SetRandomNumber(Bytes<32>(fields.number).value) &&
                data.SetModel(Bytes<4>(fields.model).value));
    return data;
}

/// 105 bytes: every field has a value of its own.
inline ImageFields WorkedFields() {
    ImageFields fields{"tag/abcd1234", "\x02\x11\x22\x33\x44\x55", "",
                       std::string("\0\0\x08\0", 4)};
    for (char byte = 0; byte < 32; ++byte) {
        fields.number += byte;
    }
    return fields;
}
