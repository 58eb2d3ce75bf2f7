// The two transfer primitives under both chip drivers: send these bytes, fetch that many bytes.
// The caller holds the device mutex.
#pragma once

#include <cstdint>

/// Sends the bytes as they stand. False, and a log line for all but a missing device, on failure.
bool NfcSpbWrite(const std::uint8_t* frame, std::uint32_t size);

/// Fetches exactly `length` bytes into `out`. A short read is a failed one; `out` is written only
/// on true.
bool NfcSpbRead(std::int32_t length, std::uint8_t* out);
