// One step on the tag as the flows take it: read the image, build and write one, read the number.
// Each holds the content lock for the whole step and keeps the transfer event, so that the end of
// another manager does not cut an image in half.
#pragma once

#include <cstdint>
#include <string>

class ManagedImage;
class NfcProxy;

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

/// The image as the memory holds it now. Copies it under the memory lock and builds it without.
std::string BuildImage(const ManagedImage& image);

/// Reads the image from the chip. `content` is assigned on success only.
bool ReadContent(NfcProxy& proxy, std::string& content);

/// Builds the image as the memory holds it now and writes it over every active route. Building and
/// writing are one step, so that no writer can put an older image over a newer one.
bool WriteImage(NfcProxy& proxy, const ManagedImage& image);

/// The same for a number thread: writes nothing where newer content of another manager has been
/// written.
enum class NumberWrite { kWritten, kFailed, kOutdated };
NumberWrite WriteImageUnlessOutdated(NfcProxy& proxy, const ManagedImage& image);

/// Reads the number back over every active route, into 32 bytes.
bool ReadNumber(NfcProxy& proxy, std::uint8_t* number);
