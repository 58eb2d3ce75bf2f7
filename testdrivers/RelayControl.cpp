// Overlapped requests to a control device, each awaited by its caller.
#include "testdrivers/RelayControl.h"

#include <stdexcept>

namespace simulator {

namespace {

HANDLE OpenControl(const std::wstring& name) {
    const HANDLE handle = CreateFileW((L"\\\\.\\" + name).c_str(), GENERIC_READ | GENERIC_WRITE, 0,
                                      nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        const DWORD error = GetLastError();
        throw std::runtime_error("the control device " + std::string(name.begin(), name.end()) +
                                 (error == ERROR_FILE_NOT_FOUND
                                      ? " is not there: its driver is not loaded"
                                      : " cannot be opened, error " + std::to_string(error)));
    }
    return handle;
}

}  // namespace

RelayControl::RelayControl(const std::wstring& name)
    : m_handle(OpenControl(name)),
      m_nextEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_stop(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

RelayControl::~RelayControl() {
    CloseHandle(m_handle);
    CloseHandle(m_nextEvent);
    CloseHandle(m_stop);
}

std::optional<RelayMessage> RelayControl::Next() {
    RelayMessage message = {};
    OVERLAPPED overlapped = {};
    overlapped.hEvent = m_nextEvent;
    DWORD moved = 0;
    if (!DeviceIoControl(m_handle, TAGPORT_RELAY_NEXT, nullptr, 0, &message, sizeof(message),
                         nullptr, &overlapped) &&
        GetLastError() != ERROR_IO_PENDING) {
        return std::nullopt;
    }
    const HANDLE handles[] = {m_nextEvent, m_stop};
    if (WaitForMultipleObjects(2, handles, FALSE, INFINITE) != WAIT_OBJECT_0) {
        CancelIoEx(m_handle, &overlapped);
    }
    if (!GetOverlappedResult(m_handle, &overlapped, &moved, TRUE) || moved != sizeof(message)) {
        return std::nullopt;
    }
    return message;
}

void RelayControl::Stop() {
    SetEvent(m_stop);
}

bool RelayControl::Answer(const RelayAnswer& answer) {
    RelayAnswer copy = answer;
    return Control(TAGPORT_RELAY_ANSWER, &copy, sizeof(copy)) == 0;
}

DWORD RelayControl::Plug(RelayDevice device, std::uint32_t present) {
    RelayPlug plug = {static_cast<std::uint32_t>(device), present};
    return Control(TAGPORT_RELAY_PLUG, &plug, sizeof(plug));
}

DWORD RelayControl::Control(DWORD code, void* in, DWORD inSize) {
    thread_local const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    OVERLAPPED overlapped = {};
    overlapped.hEvent = event;
    DWORD moved = 0;
    if (DeviceIoControl(m_handle, code, in, inSize, nullptr, 0, nullptr, &overlapped)) {
        return ERROR_SUCCESS;
    }
    const DWORD error = GetLastError();
    if (error != ERROR_IO_PENDING) {
        return error;
    }
    return GetOverlappedResult(m_handle, &overlapped, &moved, TRUE) ? ERROR_SUCCESS
                                                                    : GetLastError();
}

}  // namespace simulator
