// Runs the lab against a keyboard whose reports are longer than the library's, which the HID class
// driver refuses. It is the device process itself. Needs the loaded HID drivers.
#include <cstdio>
#include <filesystem>

#include "testdrivers/RelayControl.h"
#include "testdrivers/hid/HidInstall.h"

#include <process.h>

int main(int /*argc*/, char** argv) {
    const auto lab = std::filesystem::path(argv[0]).replace_filename("tagport-lab.exe").string();
    simulator::RelayControl control(TAGPORT_RELAY_HID_CONTROL);
    if (control.Plug(kRelayHid, TAGPORT_RELAY_LONG_REPORTS) != 0 || !simulator::AwaitHid(true)) {
        std::printf("the keyboard does not appear\n");
        return 1;
    }
    return static_cast<int>(_spawnl(_P_WAIT, lab.c_str(), "tagport-lab", "run", "--json",
                                    "--config", "examples", nullptr));
}
