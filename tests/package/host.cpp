// A host that knows tagport by its installed headers alone. Exit status 0 when the library took a
// good message and refused none at all. With the stand-in logger it prints the library's log.
#include <tagport/NfcManager.h>

#if __has_include(<platform/TraceLog.h>)
#include <platform/TraceLog.h>

#include <cstdio>

static void ShowLog() {
    const auto print = [](int level, const std::wstring& line, void* /*context*/) {
        std::printf("%d %ls\n", level, line.c_str());
    };
    TraceLogger::SetSink(print, nullptr);
}
#else
static void ShowLog() {}
#endif

int main() {
    ShowLog();
    const auto message = std::make_shared<NdefMessage>();
    const std::uint8_t pcType = 2;
    if (message->SetPcType(pcType) != 0 || message->SetUrl("example.com") != 0) {
        return 1;
    }
    const bool taken = NfcManager::Create(message, nullptr) != nullptr;
    const bool refused = NfcManager::Create(nullptr, nullptr) == nullptr;
    return taken && refused ? 0 : 1;
}
