// The tests' way to the private side of a manager.
#pragma once

#include <tagport/NfcManager.h>

#include <memory>

struct NfcManagerTestAccess {
    static bool UpdateNfcContent(NfcManager& manager) { return manager.UpdateNfcContent(); }
    static std::shared_ptr<NdefMessage> Message(const NfcManager& manager) {
        return manager.m_ndefMessage;
    }
};
