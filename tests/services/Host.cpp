// A host on a PC with other people's logger and Bluetooth client. It loads tagport.dll and prints
// results and events; both services print their calls into the same output.
#include <tagport/NfcManager.h>

#include <cstdio>

static void Listen(int event, const std::uint8_t (&)[32], int route) {
    std::printf("event %d on route %d\n", event, route);
}

int main() {
    constexpr std::uint64_t kAddress = 0xA1B2C3D4E5F6;
    const auto message = std::make_shared<NdefMessage>();
    const std::uint8_t pcType = 2;
    message->SetPcType(pcType);
    message->SetUrl("example.com");
    std::printf("without a message: %d\n", NfcManager::Create(nullptr, nullptr) != nullptr);
    const auto manager = NfcManager::Create(message, &Listen);
    std::printf("connected: %d\n", manager != nullptr && manager->BtConnect(kAddress));
    std::printf("updated: %d\n", manager != nullptr && manager->UpdateNfcData());
    std::printf("disconnected: %d\n", manager != nullptr && manager->BtDisconnect(kAddress));
    return 0;
}
