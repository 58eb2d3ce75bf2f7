#include <cstdio>
#include <string>
#include <stdexcept>
#include "simulator/windows/DriverService.h"
#include "platform/windows/Win32.h"
int main(int argc, char** argv) {
    try {
    if (argc > 1 && std::string(argv[1]) == "--install") {
    wchar_t path[MAX_PATH]; GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring p = path; p = p.substr(0, p.rfind(L'\\')+1) + L"tagport-relay.sys";
    simulator::LoadDriver(L"TagportRelay", p);
    } else simulator::UnloadDriver(L"TagportRelay");
    } catch (const std::exception& e) { std::printf("%s\n", e.what()); return 1; }
}
