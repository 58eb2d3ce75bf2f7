// Overlapped requests to a control device, each awaited by its caller.
#include "testdrivers/RelayControl.h"

#include <stdexcept>

namespace simulator {

RelayControl::RelayControl(const std::wstring& name)
    : m_stop(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    // Another process that has the device may be about to end. Wine gives a handle meanwhile, too.
    constexpr DWORD kBound = 5'000;
    constexpr DWORD kStep = 20;
    constexpr RelayAnswer kToNobody = {};
    for (DWORD waited = 0;; waited += kStep) {
        m_handle = CreateFileW((L"\\\\.\\" + name).c_str(), GENERIC_READ | GENERIC_WRITE, 0,
                               nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
        const bool isOpen = m_handle != INVALID_HANDLE_VALUE;
        if (isOpen && Answer(kToNobody)) {
            return;
        }
        const DWORD error = GetLastError();
        if (isOpen) {
            CloseHandle(m_handle);
        }
        if (error == ERROR_FILE_NOT_FOUND || waited >= kBound) {
            throw std::runtime_error("the control device " + std::string(name.begin(), name.end()) +
                                     (error == ERROR_FILE_NOT_FOUND
                                          ? " is not there: its driver is not loaded"
                                          : " cannot be opened, error " + std::to_string(error)));
        }
        Sleep(kStep);
    }
}

RelayControl::~RelayControl() {
    CloseHandle(m_handle);
    CloseHandle(m_stop);
}

std::optional<RelayMessage> RelayControl::Next() {
    RelayMessage message = {};
    const DWORD error = Control(TAGPORT_RELAY_NEXT, nullptr, 0, &message, sizeof(message));
    return error == ERROR_SUCCESS ? std::optional(message) : std::nullopt;
}

void RelayControl::Stop() {
    SetEvent(m_stop);
}

bool RelayControl::Answer(const RelayAnswer& answer) {
    return Control(TAGPORT_RELAY_ANSWER, &answer, sizeof(answer)) == ERROR_SUCCESS;
}

DWORD RelayControl::Plug(RelayDevice device, std::uint32_t present) {
    const RelayPlug plug = {static_cast<std::uint32_t>(device), present};
    return Control(TAGPORT_RELAY_PLUG, &plug, sizeof(plug));
}

DWORD RelayControl::SetRules(const RelayRules& rules) {
    return Control(TAGPORT_RELAY_RULES, &rules, sizeof(rules));
}

DWORD RelayControl::Control(DWORD code, const void* in, DWORD inSize, void* out, DWORD outSize) {
    thread_local const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    OVERLAPPED overlapped = {};
    overlapped.hEvent = event;
    DWORD moved = 0;
    if (!DeviceIoControl(m_handle, code, const_cast<void*>(in), inSize, out, outSize, nullptr,
                         &overlapped) &&
        GetLastError() != ERROR_IO_PENDING) {
        return GetLastError();
    }
    // What has ended comes before the stop.
    const HANDLE handles[] = {event, m_stop};
    if (WaitForMultipleObjects(2, handles, FALSE, INFINITE) != WAIT_OBJECT_0) {
        CancelIoEx(m_handle, &overlapped);
    }
    return GetOverlappedResult(m_handle, &overlapped, &moved, TRUE) ? ERROR_SUCCESS
                                                                    : GetLastError();
}

}  // namespace simulator
