// The smallest host: fills the tag, then reports phones until a key is pressed.
#include <tagport/NfcManager.h>

#include <cstdio>

static void Listen(int event, const std::uint8_t (&number)[32], int route) {
    std::printf("event %d on route %d, number %02x%02x...\n", event, route, number[0], number[1]);
}

int main() {
    auto message = std::make_shared<NdefMessage>();
    message->Init('5');  // PC type 5; URI from config\NfcUri.ini under the current directory
    message->SetMac({0x02, 0x11, 0x22, 0x33, 0x44, 0x55});
    const std::uint8_t number[32] = {1, 2, 3, 4};
    message->SetRandomNumber(number);

    auto manager = NfcManager::Create(message, &Listen);
    if (!manager || !manager->DeviceInit() || !manager->SetMcuKbConnectStatus(true) ||
        manager->WriteMessage(message) != 0) {
        return 1;  // the log says why
    }
    std::getchar();  // meanwhile phones are reported on the library's threads
}
