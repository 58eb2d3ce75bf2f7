// A message with a value in every field but the type, and all five fields as one byte string.
#pragma once

#include <tagport/NdefMessage.h>

#include <string>

/// The fields one after the other; each byte of the MAC address is `mac`, of the number `number`.
inline std::string State(const std::string& url, char mac, char number, const std::string& model,
                         int type) {
    return url + std::string(6, mac) + std::string(32, number) + model + static_cast<char>(type);
}

inline std::string StateOf(NdefMessage message) {
    std::string url = "untouched";
    std::uint8_t mac[6] = {9, 9, 9, 9, 9, 9};
    std::uint8_t number[32] = {9};
    std::uint8_t model[4] = {9, 9, 9, 9};
    std::uint8_t type = 9;
    const int result = message.GetUrl(url) + message.GetMac(mac) + message.GetRandomNumber(number) +
                       message.GetModel(model) + message.GetPcType(type);
    return (result == 0 ? url : "failed") + std::string(mac, mac + 6) +
           std::string(number, number + 32) + std::string(model, model + 4) +
           static_cast<char>(type);
}

inline NdefMessage FilledMessage() {
    NdefMessage message;
    message.SetUrl("old");
    message.SetMac({1, 1, 1, 1, 1, 1});
    const std::uint8_t number[32] = {2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2,
                                     2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2};
    message.SetRandomNumber(number);
    message.SetModel({3, 3, 3, 3});
    return message;
}

inline const std::string kFilledState = State("old", 1, 2, "\3\3\3\3", 0);
