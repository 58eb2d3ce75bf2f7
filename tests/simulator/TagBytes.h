// A tag image as a PC writes it, spelled out by hand: a URI record and a media-type record.
#pragma once

#include <string>

#include "simulator/Basics.h"

inline simulator::Bytes ImageForTests(const std::string& uri = "tag/abcd1234") {
    const std::string type = "application/x-test";
    const std::string payload("\x80\x64\x00\x7F\xFE", 5);  // a zero and a terminator are data
    std::string message = "\x91\x01";
    message += static_cast<char>(uri.size() + 1);
    message += "U\x04" + uri + "\x52";
    message += static_cast<char>(type.size());
    message += static_cast<char>(payload.size());
    message += type + payload;
    simulator::Bytes image = {0x03, static_cast<std::uint8_t>(message.size())};
    image.insert(image.end(), message.begin(), message.end());
    image.push_back(0xFE);
    return image;
}
