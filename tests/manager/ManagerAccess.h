// The tests' way to the private side of a manager, and to numbers as arrays.
#pragma once

#include <tagport/NfcManager.h>

#include <algorithm>
#include <memory>

#include "tests/support/Desk.h"

struct NfcManagerTestAccess {
    static bool UpdateNfcContent(NfcManager& manager) { return manager.UpdateNfcContent(); }
    static std::shared_ptr<NdefMessage> Message(const NfcManager& manager) {
        return manager.m_ndefMessage;
    }
};

inline int Renew(NfcManager& manager, const testing_support::Number& number) {
    std::uint8_t bytes[32];
    std::copy(number.begin(), number.end(), bytes);
    return manager.WriteRandNum(bytes);
}

inline void SetNumber(NdefMessage& message, const testing_support::Number& number) {
    std::uint8_t bytes[32];
    std::copy(number.begin(), number.end(), bytes);
    message.SetRandomNumber(bytes);
}
