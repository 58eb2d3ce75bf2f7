// Command objects: each carries one transfer to the peripheral's driver and lives for that
// transfer only. WaitForCommand runs any of them to its end.
#pragma once

#include <cstdint>
#include <string>

#include "platform/platform.h"
#include "transfer/Buffer.h"

/// What the driver is asked for at start-up, before the chip is looked at. Device type 0x400,
/// function 0x700, buffered, any access.
inline constexpr DWORD kOpenControlCode = 0x04001C00;

/// Base of the commands. No locks: everything runs on the caller's thread, which holds the device
/// mutex, because all commands share DeviceHandle and g_ioOverlapped.
class NfcCommand {
  public:
    virtual ~NfcCommand() = default;
    NfcCommand(const NfcCommand&) = delete;
    NfcCommand& operator=(const NfcCommand&) = delete;

    /// Prepares the command for a transfer over `handle`. False if it cannot run.
    virtual bool Parse(HANDLE handle);

    /// Starts the transfer. True: it is pending, or over, and the request's event is set at its
    /// end. False: it could not be started.
    virtual bool Execute() = 0;

    /// Takes the result: a status (0 for success, else a last-error code) and the bytes moved.
    virtual void Complete(std::uint32_t status, std::uint32_t information);

    /// Asks the driver to cancel the pending transfer. False if there was none.
    virtual bool Cancel();

    const std::uint8_t* buffer() const { return m_buffer.get(); }

    /// Bytes that a read delivered.
    std::uint32_t NumBytes = 0;

  protected:
    explicit NfcCommand(std::string name);

    /// The bytes to send, or room for the bytes to receive; null until prepared.
    Buffer m_buffer;

  private:
    // For a debugger: which transfer of the process this is, and "open", "read" or "write".
    std::uint32_t m_sequence;
    std::string m_name;
};

/// The open request. Has no bytes in either direction.
class COpenCommand : public NfcCommand {
  public:
    COpenCommand();
    bool Execute() override;
    void Complete(std::uint32_t status, std::uint32_t information) override;
};

/// Fetches `length` bytes. Call Parse, WaitForCommand, then look at NumBytes.
class CReadCommand : public NfcCommand {
  public:
    explicit CReadCommand(std::uint32_t length);
    bool Parse(HANDLE handle) override;
    bool Execute() override;
    void Complete(std::uint32_t status, std::uint32_t information) override;

  private:
    std::uint32_t m_length;
};

/// Sends `length` bytes. Call WriteParse, then WaitForCommand.
class CWriteCommand : public NfcCommand {
  public:
    explicit CWriteCommand(std::uint32_t length);

    /// Copies the bytes to send. `size` must be the constructor's length. False with a log line
    /// and an empty buffer otherwise.
    bool WriteParse(const std::uint8_t* data, std::uint32_t size);
    bool Execute() override;
    void Complete(std::uint32_t status, std::uint32_t information) override;

  private:
    std::uint32_t m_length;
};
