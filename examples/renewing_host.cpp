// A service that gives the tag a new number every minute and comes back after the keyboard was
// pulled out. A Windows service also calls Tick at once when it is told of a resume
// (SERVICE_CONTROL_POWEREVENT) or of a device that has arrived (SERVICE_CONTROL_DEVICEEVENT), on
// the same thread.
#include "RenewingHost.h"

#include <chrono>
#include <cstdio>
#include <thread>

static void Listen(int event, const std::uint8_t (&)[32], int route) {
    std::printf("route %d: %s\n", route,
                event == 3   ? "a phone has come"
                : event == 1 ? "the phone has left"
                             : "the tag has started");
    std::fflush(stdout);
}

int main() {
    auto message = std::make_shared<NdefMessage>();
    message->Init('5');  // PC type 5; URI from config\NfcUri.ini under the current directory
    message->SetMac({0x02, 0x11, 0x22, 0x33, 0x44, 0x55});

    RenewingHost host(message, &Listen);
    for (bool well = true;; std::this_thread::sleep_for(std::chrono::minutes(1))) {
        if (host.Tick() != well) {
            well = !well;
            std::puts(well ? "the tag is back" : "no tag can be reached; the log says why");
        }
    }
}
