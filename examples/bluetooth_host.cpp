// Keeps the tag of a Bluetooth keyboard filled: bluetooth_host ADDRESS, as in A1B2C3D4E5F6.
#include "BluetoothHost.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

static void Listen(int event, const std::uint8_t (&)[32], int) {
    std::puts(event == 3 ? "a phone has come" : "the phone has left");
    std::fflush(stdout);
}

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: bluetooth_host ADDRESS\n", stderr);
        return 2;
    }
    auto message = std::make_shared<NdefMessage>();
    message->Init('5');  // PC type 5; URI from config\NfcUri.ini under the current directory
    message->SetMac({0x02, 0x11, 0x22, 0x33, 0x44, 0x55});
    message->SetRandomNumber({1, 2, 3, 4});

    BluetoothHost host(message, std::strtoull(argv[1], nullptr, 16), &Listen);
    for (bool well = true;; std::this_thread::sleep_for(std::chrono::minutes(1))) {
        if (host.Tick() != well) {
            well = !well;
            std::puts(well ? "the keyboard is back" : "no keyboard in range; the log says why");
        }
    }
}
