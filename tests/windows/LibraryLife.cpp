// The library in a process that loads it, frees it and ends. Needs the loaded relay driver and
// nobody else at its devices.
#include <tagport/NfcListener.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "lab/DeviceProcessClient.h"
#include "platform/windows/Win32.h"
#include "testdrivers/DriverService.h"

namespace {

constexpr unsigned kIdleLoads = 90;
constexpr unsigned kStarts = 24;
constexpr unsigned kStartsUntilSteady = 3;  // what is made once per process has been made by then
// Handles more or less by which of the long-lived threads are there; a leak at every fifth start is
// more.
constexpr std::size_t kFlutter = 3;
constexpr DWORD kEventBound = 5'000;
constexpr wchar_t kDriver[] = L"tagport-relay";

std::atomic<unsigned> g_events{0};

void OnEvent(int /*event*/, const std::uint8_t (&/*number*/)[32], int /*route*/) {
    ++g_events;
}

void Check(bool holds, const std::string& what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

class Plugin {
  public:
    Plugin() : m_module(LoadLibraryW(L"host_plugin.dll")) {
        Check(m_module != nullptr,
              "host_plugin.dll cannot be loaded, error " + std::to_string(GetLastError()));
    }
    ~Plugin() { FreeLibrary(m_module); }
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    void Begin() const {
        const auto begin = Function<int(NfcListener)>("Begin");
        Check(begin(&OnEvent) == 0, "the library cannot start");
    }
    void Renew() const { Check(Function<int()>("Renew")() == 0, "the library takes no number"); }
    void End() const { Function<void()>("End")(); }

  private:
    template <class Signature>
    Signature* Function(const char* name) const {
        return reinterpret_cast<Signature*>(
            reinterpret_cast<void*>(GetProcAddress(m_module, name)));
    }
    HMODULE m_module;
};

bool LibraryIsLoaded() {
    return GetModuleHandleW(L"tagport.dll") != nullptr;
}

// The system's list of all handles. GetProcessHandleCount gives zero on Wine 8.
struct HandleEntry {
    void* object;
    ULONG_PTR processId;
    ULONG_PTR rest[3];
};
struct HandleList {
    ULONG_PTR count;
    ULONG_PTR reserved;
    HandleEntry entries[1];
};

std::size_t Handles() {
    using Query = LONG(WINAPI*)(int what, void* buffer, ULONG size, ULONG* needed);
    constexpr int kExtendedHandles = 64;
    static const auto query = reinterpret_cast<Query>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
    constexpr std::size_t kMostBytes = std::size_t{4} << 20U;
    static std::vector<ULONG_PTR> buffer(kMostBytes / sizeof(ULONG_PTR));
    const auto* list = reinterpret_cast<const HandleList*>(buffer.data());
    Check(query(kExtendedHandles, buffer.data(), kMostBytes, nullptr) == 0,
          "the handles cannot be counted");
    const std::size_t count = std::count_if(
        list->entries, list->entries + list->count,
        [](const HandleEntry& entry) { return entry.processId == GetCurrentProcessId(); });
    Check(count > 0, "the list of handles has none of this process");
    return count;
}

// Threads that end after a stop give their handles back a little later.
std::size_t HandlesAtRest() {
    constexpr DWORD kRest = 1'000;
    std::size_t count = Handles();
    for (DWORD still = 0; still < kRest; still += 50) {
        Sleep(50);
        const std::size_t now = Handles();
        if (now != count) {
            count = now;
            still = 0;
        }
    }
    return count;
}

void TapPhone(lab::DeviceProcess& devices) {
    const unsigned before = g_events;
    devices.Ask("tap 0 300");
    for (DWORD waited = 0; g_events < before + 2; waited += 10) {
        Check(waited < kEventBound, "a phone was not reported");
        Sleep(10);
    }
}

// Without threads the library goes with its host; with threads it stays for them.
void LoadAndFree(lab::DeviceProcess& devices) {
    std::size_t handles = 0;
    for (unsigned turn = 0; turn < kIdleLoads; ++turn) {
        const Plugin plugin;
        Check(LibraryIsLoaded(), "the plug-in came without the library");
        if (turn == kStartsUntilSteady) {
            handles = Handles();
        }
    }
    Check(!LibraryIsLoaded(), "a library without threads stays loaded");
    std::printf("%u loads without a start: %zu handles, then %zu\n", kIdleLoads, handles,
                Handles());
    Check(Handles() <= handles, "loading leaks handles");
    for (unsigned turn = 0; turn < kStarts; ++turn) {
        const Plugin plugin;
        plugin.Begin();
        if (turn % 8 == 0) {
            TapPhone(devices);
        }
        plugin.Renew();  // written after the plug-in has gone
        plugin.End();
        if (turn == kStartsUntilSteady) {
            handles = HandlesAtRest();
        }
    }
    Check(LibraryIsLoaded(), "the library was unloaded under its threads");
    const std::size_t last = HandlesAtRest();
    std::printf("%u loads with a start: %zu handles, then %zu\n", kStarts, handles, last);
    Check(last <= handles + kFlutter, "starting leaks handles");
}

// As when a driver is replaced: it is taken away under the library's handle and threads, and the
// host that starts again finds the new one.
void ReplaceDriver(lab::DeviceProcess& devices) {
    const Plugin plugin;
    plugin.Begin();
    TapPhone(devices);
    simulator::UnloadDriver(kDriver);
    plugin.End();
    devices.Ask("quit");
    simulator::LoadDriver(kDriver);
    // Ends with this process, as the one that it replaces.
    lab::DeviceProcess& others = *new lab::DeviceProcess([](const std::string&) {});
    others.Ask("pc usb");
    plugin.Begin();
    TapPhone(others);
    plugin.End();
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc == 2 ? argv[1] : "";
    try {
        // Never destroyed: the process ends while the library's threads still wait for devices.
        lab::DeviceProcess& devices = *new lab::DeviceProcess([](const std::string&) {});
        devices.Ask("pc usb");
        if (what == "load-and-free") {
            LoadAndFree(devices);
        } else if (what == "replace-driver") {
            ReplaceDriver(devices);
        } else if (what == "exit" || what == "exit-in-visit") {
            // Returns with the library's threads waiting, in the second case in a visit.
            const Plugin& plugin = *new Plugin;
            plugin.Begin();
            TapPhone(devices);
            if (what == "exit-in-visit") {
                devices.Ask("enter 0");
                Sleep(200);
            }
        } else {
            std::fprintf(stderr,
                         "usage: library_life load-and-free|replace-driver|exit|exit-in-visit\n");
            return 2;
        }
    } catch (const std::exception& problem) {
        std::printf("FAILED: %s\n", problem.what());
        std::fflush(stdout);
        return 1;
    }
    return 0;
}
