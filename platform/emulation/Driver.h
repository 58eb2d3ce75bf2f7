// The driver of a device in the emulation. Simulated devices implement Driver; the layer calls
// it and passes it the requests of the library.
//
// All of this runs under the layer's device lock (see Kernel.h). So a driver needs no lock of its
// own, and must not call a Win32 operation or anything else that blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/emulation/DriverTypes.h"

namespace emulation {

using ThreadId = std::uint32_t;

/// One overlapped request. The layer keeps it until it has ended; the driver may keep it for
/// longer. Ending it a second time does nothing.
class Request {
  public:
    enum class Kind { kRead, kWrite, kControl };

    virtual ~Request() = default;

    Kind kind() const { return m_kind; }
    DWORD controlCode() const { return m_controlCode; }               ///< kControl only
    const std::vector<std::uint8_t>& data() const { return m_data; }  ///< bytes from the caller
    std::size_t length() const { return m_length; }                   ///< bytes wanted or given
    ThreadId thread() const { return m_thread; }                      ///< who started it

    /// False once it has been completed, failed or cancelled.
    virtual bool Pending() const = 0;

    /// Ends the request with success. For a read or a control the caller gets `bytes`, at most
    /// length() of them. For a write, `bytes` is null and `count` is the number of bytes taken.
    virtual void Complete(const std::uint8_t* bytes, std::size_t count) = 0;

    /// Ends the request with a last-error code, with `count` bytes moved.
    virtual void Fail(DWORD error, std::size_t count = 0) = 0;

  protected:
    Request(Kind kind, DWORD controlCode, std::vector<std::uint8_t> data, std::size_t length,
            ThreadId thread)
        : m_kind(kind),
          m_controlCode(controlCode),
          m_data(std::move(data)),
          m_length(length),
          m_thread(thread) {}

  private:
    Kind m_kind;
    DWORD m_controlCode;
    std::vector<std::uint8_t> m_data;
    std::size_t m_length;
    ThreadId m_thread;
};
using RequestPtr = std::shared_ptr<Request>;

/// What the layer calls for a device.
class Driver {
  public:
    virtual ~Driver() = default;

    /// A handle is being opened. Zero allows it; any other last-error code refuses it.
    virtual DWORD Open() { return ERROR_SUCCESS; }

    /// The last handle is being closed. The driver should fail its pending requests here. The layer
    /// fails those that are left with ERROR_OPERATION_ABORTED.
    virtual void Close() {}

    /// Takes a request. ERROR_IO_PENDING: the driver will end it later. ERROR_SUCCESS: the driver
    /// has completed it already. Any other code: the request is refused.
    virtual DWORD Start(const RequestPtr& request) = 0;

    /// The layer is about to end the request with ERROR_OPERATION_ABORTED.
    virtual void Cancel(const RequestPtr& /*request*/) {}
};

}  // namespace emulation
