// A host that puts the library's log where its own goes. Windows PCs have a logger that receives
// the log; this is for the stand-in that takes its place elsewhere, and in trials on Windows.
#include <tagport/NfcManager.h>

#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>

#if __has_include(<platform/services/TraceLog.h>)
#include <platform/services/TraceLog.h>

static std::string Utf8(const std::wstring& line) {
    std::string text;
    for (const wchar_t unit : line) {
        text += static_cast<char>(unit);  // the library widens byte by byte
    }
    return text;
}

// Called on the thread that logs, and by several at once.
static void WriteLine(int level, const std::wstring& line, void* context) {
    static std::mutex mutex;
    const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    const std::lock_guard<std::mutex> guard(mutex);
    std::fprintf(static_cast<std::FILE*>(context), "%lld %s %s\n",
                 static_cast<long long>(time.count()),
                 level == LOG_MESSAGE_LEVEL_ERROR ? "error  " : "warning", Utf8(line).c_str());
}

static void ChooseLog() {
    TraceLogger::SetSink(&WriteLine, stderr);
}
#else
static void ChooseLog() {
    std::puts("the log goes to the PC's logger");
}
#endif

int main() {
    ChooseLog();  // before the first call of the library
    auto message = std::make_shared<NdefMessage>();
    message->SetUrl("example.com/pc?" + std::string(35, '0'));  // 50 bytes, as PC type 5 has
    message->SetPcType(5);
    const auto manager = NfcManager::Create(message, nullptr);
    return manager != nullptr && manager->DeviceInit() ? 0 : 1;
}
