// The device process's side of a test driver: its control device. Windows alone.
#pragma once

#include <optional>
#include <string>

#include "platform/windows/Win32.h"
#include "testdrivers/RelayProtocol.h"

namespace simulator {

/// One open control device. Next is for one thread; the others are for any.
class RelayControl {
  public:
    /// `name` is one of the TAGPORT_RELAY_..._CONTROL. Throws std::runtime_error when the driver
    /// is not loaded or another process keeps its devices for 5 s.
    explicit RelayControl(const std::wstring& name);
    /// Fails every pending request, and removes the devices.
    ~RelayControl();
    RelayControl(const RelayControl&) = delete;
    RelayControl& operator=(const RelayControl&) = delete;

    /// Waits for the next message; nothing after Stop, or when the driver ends.
    std::optional<RelayMessage> Next();
    /// Ends a Next that waits, and every later one.
    void Stop();

    /// Ends a request. False when the driver refused the call; a request that has ended already is
    /// no error.
    bool Answer(const RelayAnswer& answer);
    /// Both return a last-error code, or zero.
    DWORD Plug(RelayDevice device, std::uint32_t present);
    DWORD SetRules(const RelayRules& rules);

  private:
    DWORD Control(DWORD code, const void* in, DWORD inSize, void* out = nullptr, DWORD outSize = 0);

    HANDLE m_handle = INVALID_HANDLE_VALUE;
    HANDLE m_stop;
};

}  // namespace simulator
