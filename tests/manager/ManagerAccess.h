// The tests' way to the private side of a manager, and to numbers as arrays.
#pragma once

#include <tagport/NfcManager.h>

#include <memory>

#include "tests/support/Desk.h"

struct NfcManagerTestAccess {
    static bool UpdateNfcContent(NfcManager& manager) { return manager.UpdateNfcContent(); }
    static std::shared_ptr<NdefMessage> Message(const NfcManager& manager) {
        return manager.m_ndefMessage;
    }
};

inline void SetNumber(NdefMessage& message, testing_support::Number number) {
    message.SetRandomNumber(reinterpret_cast<const std::uint8_t(&)[32]>(number));
}

inline int Renew(NfcManager& manager, testing_support::Number number) {
    return manager.WriteRandNum(reinterpret_cast<const std::uint8_t(&)[32]>(number));
}
