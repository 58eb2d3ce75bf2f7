// A host in a module of its own, so that the program that loads it can load and free the library
// with it. All its functions are exported.
#include <tagport/NfcManager.h>

#include <algorithm>
#include <memory>

namespace {

constexpr std::uint8_t kPcType = 5;
constexpr std::size_t kUrlSize = 50;  // that the number of this PC type is read back for

std::shared_ptr<NfcManager> g_manager;
std::uint8_t g_number[32] = {};

// The message and its deleter belong to this module.
std::shared_ptr<NdefMessage> NewMessage() {
    auto message = std::make_shared<NdefMessage>();
    message->SetUrl(std::string(kUrlSize, 'u'));
    message->SetRandomNumber(g_number);
    message->SetPcType(kPcType);
    return message;
}

}  // namespace

extern "C" {

/// Opens the tag and writes a message; zero when that worked.
int Begin(NfcListener listener) {
    std::fill(std::begin(g_number), std::end(g_number), std::uint8_t{1});
    g_manager = NfcManager::Create(NewMessage(), listener);
    if (g_manager == nullptr || !g_manager->DeviceInit()) {
        return 1;
    }
    return g_manager->WriteMessage(NewMessage());
}

/// Starts a thread of the library that writes a new number; zero when that worked.
int Renew() {
    ++g_number[0];
    return g_manager->WriteRandNum(g_number);
}

/// Releases the manager.
void End() {
    g_manager.reset();
}

}  // extern "C"
