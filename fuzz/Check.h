// What a fuzzer asks of every input.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

/// Ends the process as a finding when `holds` is false.
inline void Check(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "broken: %s\n", what);
        std::abort();
    }
}

inline std::string AsText(const std::uint8_t* data, std::size_t size) {
    return size == 0 ? std::string() : std::string(reinterpret_cast<const char*>(data), size);
}

/// Cuts an input into messages: a byte with the length, up to `most`, and the message.
inline std::vector<std::vector<std::uint8_t>> Messages(const std::uint8_t* data, std::size_t size,
                                                       std::size_t most) {
    std::vector<std::vector<std::uint8_t>> messages;
    const std::uint8_t* const end = data + size;
    while (data != end) {
        std::size_t length = *data++ % (most + 1);
        length = std::min(length, static_cast<std::size_t>(end - data));
        messages.emplace_back(data, data + length);
        data += length;
    }
    return messages;
}
