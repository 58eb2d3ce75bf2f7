// A host that knows tagport by its installed headers alone. Exit status 0 when the library took a
// good message and refused none at all.
#include <tagport/NfcManager.h>

int main() {
    const auto message = std::make_shared<NdefMessage>();
    const std::uint8_t pcType = 2;
    if (message->SetPcType(pcType) != 0 || message->SetUrl("example.com") != 0) {
        return 1;
    }
    const bool taken = NfcManager::Create(message, nullptr) != nullptr;
    const bool refused = NfcManager::Create(nullptr, nullptr) == nullptr;
    return taken && refused ? 0 : 1;
}
