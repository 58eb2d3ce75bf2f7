// The tests' way to the private side of a manager.
#pragma once

#include <tagport/NfcManager.h>

#include <memory>

struct NfcManagerTestAccess {
    /// The message that it holds now: a write puts another one into the place of the creation's.
    static std::shared_ptr<NdefMessage> Message(const NfcManager& m) { return m.m_ndefMessage; }
    static bool UpdateNfcContent(NfcManager& manager) { return manager.UpdateNfcContent(); }
};
