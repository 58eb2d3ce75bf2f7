// Overlapped requests: their start, end and cancellation, and what is stored in an OVERLAPPED.
#include <algorithm>
#include <cstring>

#include "platform/emulation/KernelState.h"

namespace emulation {

namespace {

// The status that a kernel stores for each of the codes that occur. Any other code is stored as a
// wrapped last-error code, and is read back as the same code.
struct StatusOfError {
    DWORD error;
    std::uint32_t status;
};
constexpr StatusOfError kStatuses[] = {
    {ERROR_SUCCESS, 0},
    {ERROR_INVALID_HANDLE, 0xC0000008},
    {ERROR_GEN_FAILURE, 0xC0000001},
    {ERROR_SEM_TIMEOUT, 0xC00000B5},
    {ERROR_OPERATION_ABORTED, 0xC0000120},
    {ERROR_IO_DEVICE, 0xC0000185},
    {ERROR_DEVICE_NOT_CONNECTED, 0xC000009D},
};
constexpr std::uint32_t kWrappedError = 0x80070000;
constexpr std::uint32_t kWrappedErrorMask = 0xFFFF0000;
constexpr std::uint32_t kErrorMask = 0x0000FFFF;
constexpr std::uint32_t kFirstErrorStatus = 0x80000000;
constexpr DWORD kErrorUnknownStatus = 317;  // ERROR_MR_MID_NOT_FOUND

std::uint32_t StatusFromError(DWORD error) {
    for (const StatusOfError& known : kStatuses) {
        if (known.error == error) {
            return known.status;
        }
    }
    return kWrappedError | (error & kErrorMask);
}

DWORD ErrorFromStatus(std::uint32_t status) {
    if ((status & kWrappedErrorMask) == kWrappedError) {
        return status & kErrorMask;
    }
    for (const StatusOfError& known : kStatuses) {
        if (known.status == status) {
            return known.error;
        }
    }
    return status < kFirstErrorStatus ? ERROR_SUCCESS : kErrorUnknownStatus;
}

void TraceRequest(TraceEvent::Kind kind, const RequestPtr& request, DWORD error = ERROR_SUCCESS,
                  const std::uint8_t* bytes = nullptr, std::size_t count = 0) {
    Trace(kind, [&](TraceEvent& event) {
        event.request = request;
        event.error = error;
        event.count = count;
        if (bytes != nullptr) {
            event.bytes.assign(bytes, bytes + count);
        }
    });
}

}  // namespace

void PendingRequest::Complete(const std::uint8_t* bytes, std::size_t count) {
    End(ERROR_SUCCESS, bytes, count);
}

void PendingRequest::Fail(DWORD error, std::size_t count) {
    End(error, nullptr, count);
}

void PendingRequest::End(DWORD error, const std::uint8_t* bytes, std::size_t count) {
    const DeviceLock lock;
    if (!Pending()) {
        return;
    }
    auto& pending = TheKernel().pending;
    const auto found = std::find_if(pending.begin(), pending.end(),
                                    [this](const auto& other) { return other.get() == this; });
    const std::shared_ptr<PendingRequest> self = *found;  // lives until the end of this function
    pending.erase(found);

    const std::size_t moved = std::min(count, length());
    if (m_out != nullptr && bytes != nullptr && moved > 0) {
        std::memcpy(m_out, bytes, moved);
    }
    m_overlapped->InternalHigh = moved;
    m_overlapped->Internal = StatusFromError(error);
    TraceRequest(TraceEvent::Kind::kDone, self, error,
                 kind() == Kind::kWrite ? data().data() : bytes, moved);
    (m_event != nullptr ? m_event->signal : m_file->signal).Set();
    TheScheduler().Changed();
    Detach();
}

bool CancelRequests(const std::function<bool(const PendingRequest& request)>& which) {
    bool found = false;
    const auto pending = TheKernel().pending;  // a copy: ending a request takes it out
    for (const auto& request : pending) {
        if (request->Pending() && which(*request)) {
            found = true;
            TraceRequest(TraceEvent::Kind::kCancel, request);
            request->file()->node->driver->Cancel(request);
            request->Fail(ERROR_OPERATION_ABORTED, 0);
        }
    }
    return found;
}

namespace {

/// The arguments of ReadFile, WriteFile or DeviceIoControl.
struct Transfer {
    Request::Kind kind;
    DWORD controlCode;
    const void* in;
    DWORD inLength;
    void* out;
    DWORD outLength;
};

/// Starts a request. Returns the last-error code; ERROR_IO_PENDING if the request is pending.
DWORD Start(const Operation& operation, HANDLE device, const Transfer& transfer,
            OVERLAPPED& overlapped) {
    Kernel& kernel = TheKernel();
    const auto file = operation.Find<FileObject>(device);
    if (file == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    std::shared_ptr<EventObject> event;
    if (overlapped.hEvent != nullptr) {
        event = operation.Find<EventObject>(overlapped.hEvent);
        if (event == nullptr) {
            return ERROR_INVALID_HANDLE;
        }
        event->signal.Reset();
    }
    file->signal.Reset();
    if ((transfer.in == nullptr && transfer.inLength > 0) ||
        (transfer.out == nullptr && transfer.outLength > 0)) {
        return ERROR_INVALID_PARAMETER;
    }
    const auto* bytes = static_cast<const std::uint8_t*>(transfer.in);
    const bool write = transfer.kind == Request::Kind::kWrite;
    const auto request = std::make_shared<PendingRequest>(
        transfer.kind, transfer.controlCode,
        std::vector<std::uint8_t>(bytes, bytes + transfer.inLength),
        write ? transfer.inLength : transfer.outLength, CurrentThread(), &overlapped, transfer.out,
        file, std::move(event));
    kernel.pending.push_back(request);
    TraceRequest(TraceEvent::Kind::kStart, request);
    const DWORD answer = file->node->driver->Start(request);
    kernel.scheduler->Changed();
    if (answer == ERROR_SUCCESS && request->Pending()) {
        return ERROR_IO_PENDING;  // the driver reported success without having ended the request
    }
    if (answer != ERROR_SUCCESS && answer != ERROR_IO_PENDING && request->Pending()) {
        kernel.pending.erase(std::find(kernel.pending.begin(), kernel.pending.end(), request));
        request->Detach();
        TraceRequest(TraceEvent::Kind::kDone, request, answer);
    }
    return answer;
}

BOOL StartTransfer(Call call, HANDLE device, const Transfer& transfer, DWORD* moved,
                   OVERLAPPED* overlapped) {
    const Operation operation(call);
    if (overlapped == nullptr) {  // a device that is open for overlapped I/O needs one
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    overlapped->Internal = STATUS_PENDING;
    if (moved != nullptr) {
        *moved = 0;
    }
    if (operation.Refused()) {
        return FALSE;
    }
    const DWORD error = Start(operation, device, transfer, *overlapped);
    if (error != ERROR_SUCCESS) {
        return FailWith(error);
    }
    if (moved != nullptr) {
        *moved = static_cast<DWORD>(overlapped->InternalHigh);
    }
    return TRUE;
}

}  // namespace

}  // namespace emulation

using emulation::Call;
using emulation::Operation;
using emulation::Request;

BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD length, DWORD* moved, OVERLAPPED* overlapped) {
    return emulation::StartTransfer(Call::kReadFile, file,
                                    {Request::Kind::kRead, 0, nullptr, 0, buffer, length}, moved,
                                    overlapped);
}

BOOL WriteFile(HANDLE file, const void* buffer, DWORD length, DWORD* moved,
               OVERLAPPED* overlapped) {
    return emulation::StartTransfer(Call::kWriteFile, file,
                                    {Request::Kind::kWrite, 0, buffer, length, nullptr, 0}, moved,
                                    overlapped);
}

BOOL DeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD inLength, LPVOID out,
                     DWORD outLength, DWORD* moved, OVERLAPPED* overlapped) {
    return emulation::StartTransfer(Call::kDeviceIoControl, device,
                                    {Request::Kind::kControl, code, in, inLength, out, outLength},
                                    moved, overlapped);
}

BOOL GetOverlappedResult(HANDLE file, OVERLAPPED* overlapped, DWORD* moved, BOOL wait) {
    const Operation operation(Call::kGetOverlappedResult);
    if (operation.Refused()) {
        return FALSE;
    }
    if (overlapped == nullptr || moved == nullptr) {
        return emulation::FailWith(ERROR_INVALID_PARAMETER);
    }
    if (overlapped->Internal == STATUS_PENDING && wait != FALSE) {
        const HANDLE waited = overlapped->hEvent != nullptr ? overlapped->hEvent : file;
        const std::shared_ptr<emulation::Object> object = emulation::FindObject(waited);
        if (std::dynamic_pointer_cast<emulation::EventObject>(object) == nullptr &&
            std::dynamic_pointer_cast<emulation::FileObject>(object) == nullptr) {
            return emulation::FailWith(ERROR_INVALID_HANDLE);
        }
        emulation::WaitOn(object, waited, INFINITE);
    }
    if (overlapped->Internal == STATUS_PENDING && wait == FALSE) {
        return emulation::FailWith(ERROR_IO_INCOMPLETE);
    }
    *moved = static_cast<DWORD>(overlapped->InternalHigh);
    const DWORD error =
        emulation::ErrorFromStatus(static_cast<std::uint32_t>(overlapped->Internal));
    return error == ERROR_SUCCESS ? TRUE : emulation::FailWith(error);
}

bool HasOverlappedIoCompleted(const OVERLAPPED* overlapped) {
    const emulation::KernelLock lock;
    return overlapped->Internal != STATUS_PENDING;
}

BOOL CancelIoEx(HANDLE file, OVERLAPPED* overlapped) {
    const Operation operation(Call::kCancelIoEx);
    const auto object = operation.Find<emulation::FileObject>(file);
    if (object == nullptr) {
        return FALSE;
    }
    const bool found = emulation::CancelRequests([&](const emulation::PendingRequest& request) {
        return request.file() == object.get() &&
               (overlapped == nullptr || request.overlapped() == overlapped);
    });
    return found ? TRUE : emulation::FailWith(ERROR_NOT_FOUND);
}
