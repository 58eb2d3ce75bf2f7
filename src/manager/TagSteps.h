// One step on the tag as the flows take it: start its device, read the image, build and write one,
// read the number. Each holds the content lock for the whole step and keeps the transfer event, so
// that the end of another manager does not cut an image in half.
#pragma once

#include <cstdint>
#include <string>

class ManagedImage;

/// How often a step on the tag is tried. No pause lies between two attempts: the chip layer has
/// pauses of its own.
inline constexpr int kTagAttempts = 3;

/// Takes a step until it works, kTagAttempts times at most. True when it has worked.
template <class Step>
bool TryThrice(Step step) {
    for (int attempt = 0; attempt < kTagAttempts; ++attempt) {
        if (step()) {
            return true;
        }
    }
    return false;
}

/// Up to three attempts, with 300 ms after each failure. Logs nothing of its own.
bool StartDeviceWithRetries();

/// The image as the memory holds it now. Copies it under the memory lock and builds it without.
std::string BuildImage(const ManagedImage& image);

/// Reads the image from the chip. `image` is assigned on success only.
bool ReadImage(std::string& image);

/// Builds the image as the memory holds it now and writes it over every active route. Building and
/// writing are one step, so that no writer can put an older image over a newer one.
bool WriteImage(const ManagedImage& image);

/// The same for a number thread: writes nothing where a newer image of another manager has been
/// written.
enum class NumberWrite { kWritten, kFailed, kOutdated };
NumberWrite WriteImageUnlessOutdated(const ManagedImage& image);

/// Reads the number back over every active route, into 32 bytes.
bool ReadNumber(std::uint8_t* number);
