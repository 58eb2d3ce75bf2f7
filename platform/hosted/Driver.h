// What stands behind a device path in the hosted layer: the kernel side of a driver. Simulated
// devices implement Driver; the layer calls it and hands it the requests of the library.
//
// Everything here runs under the layer's device lock (see Kernel.h): a driver needs no lock of its
// own, and must not call a Win32 operation or anything else that blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/hosted/Win32.h"

namespace hosted {

using ThreadId = std::uint32_t;

/// One overlapped request on its way. Held by the layer until it has ended, and by the driver for
/// as long as the driver wants; ending it twice does nothing the second time.
class Request {
  public:
    enum class Kind { kRead, kWrite, kControl };

    virtual ~Request() = default;

    Kind kind() const { return m_kind; }
    DWORD controlCode() const { return m_controlCode; }               ///< kControl only
    const std::vector<std::uint8_t>& data() const { return m_data; }  ///< bytes from the caller
    std::size_t length() const { return m_length; }                   ///< bytes asked for or given
    ThreadId thread() const { return m_thread; }                      ///< who started it

    /// False once it has been completed, failed or cancelled.
    virtual bool Pending() const = 0;

    /// Ends the request with success. For a read or a control `bytes` are what the caller gets, at
    /// most length() of them; for a write give null and the number of bytes taken.
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

/// The device side of a path.
class Driver {
  public:
    virtual ~Driver() = default;

    /// A handle is being opened. Zero lets it open; any other last-error code refuses.
    virtual DWORD Open() { return ERROR_SUCCESS; }

    /// The last handle is being closed. Requests still pending should be failed here, as a driver's
    /// clean-up does; what is left over the layer fails with ERROR_OPERATION_ABORTED.
    virtual void Close() {}

    /// Takes a request. ERROR_IO_PENDING: it will be ended later. ERROR_SUCCESS: Complete has been
    /// called already and the caller is told so at once. Any other code: refused at once.
    virtual DWORD Start(const RequestPtr& request) = 0;

    /// The layer is about to end the request with ERROR_OPERATION_ABORTED.
    virtual void Cancel(const RequestPtr& /*request*/) {}
};

}  // namespace hosted
