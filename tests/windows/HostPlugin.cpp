// A host in a DLL of its own, so that the program that loads it can load and free the library with
// it.
#include <tagport/NfcManager.h>

#include <memory>

namespace {

std::shared_ptr<NfcManager> g_manager;

}  // namespace

extern "C" {

/// Opens the tag and writes a message; zero when that worked. Needs config\NfcUri.ini.
__declspec(dllexport) int Begin(NfcListener listener) {
    const auto message = std::make_shared<NdefMessage>();
    message->Init('5');
    const std::uint8_t number[32] = {1, 2, 3, 4};
    message->SetRandomNumber(number);
    g_manager = NfcManager::Create(message, listener);
    if (g_manager == nullptr || !g_manager->DeviceInit()) {
        return 1;
    }
    return g_manager->WriteMessage(message);
}

/// Releases the manager.
__declspec(dllexport) void End() {
    g_manager.reset();
}

}  // extern "C"
