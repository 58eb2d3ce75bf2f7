// The table of devices by path, and the opening and closing of devices.
#include <algorithm>
#include <cwctype>

#include "platform/emulation/KernelState.h"

namespace emulation {

namespace {

/// The share modes of an open handle and of a new one exclude each other.
bool Excludes(const FileObject& standing, const FileObject& wanted) {
    const auto shares = [](DWORD share, DWORD access) {
        return ((access & GENERIC_READ) == 0 || (share & FILE_SHARE_READ) != 0) &&
               ((access & GENERIC_WRITE) == 0 || (share & FILE_SHARE_WRITE) != 0);
    };
    return !shares(standing.share, wanted.access) || !shares(wanted.share, standing.access);
}

void TraceFile(TraceEvent::Kind kind, const std::wstring& path, DWORD error) {
    Trace(kind, [&](TraceEvent& event) {
        event.text = ToUtf8(path.data(), path.size());
        event.error = error;
    });
}

void PutDevice(const std::wstring& path, std::shared_ptr<Driver> driver,
               std::shared_ptr<const HidInterface> hid) {
    TheKernel().devices[FoldCase(path)] =
        std::make_shared<DeviceNode>(DeviceNode{path, std::move(driver), std::move(hid), {}});
}

/// Opens the device at `path` for `file`. Returns the last-error code.
DWORD Open(const std::wstring& path, FileObject& file) {
    const auto found = TheKernel().devices.find(FoldCase(path));
    if (found == TheKernel().devices.end()) {
        return ERROR_FILE_NOT_FOUND;
    }
    const std::shared_ptr<DeviceNode> node = found->second;
    for (const FileObject* const standing : node->openings) {
        if (Excludes(*standing, file)) {
            return ERROR_SHARING_VIOLATION;
        }
    }
    const DWORD error = node->driver->Open();
    if (error == ERROR_SUCCESS) {
        node->openings.push_back(&file);
        file.node = node;
    }
    return error;
}

}  // namespace

void CloseFile(FileObject& file) {
    DeviceNode& node = *file.node;
    node.openings.erase(std::find(node.openings.begin(), node.openings.end(), &file));
    TraceFile(TraceEvent::Kind::kClose, node.path, ERROR_SUCCESS);
    if (node.openings.empty()) {
        node.driver->Close();
    }
    CancelRequests([&](const PendingRequest& request) { return request.file() == &file; });
    TheScheduler().Changed();
}

void AddDevice(const std::wstring& path, std::shared_ptr<Driver> driver) {
    const KernelLock lock;
    PutDevice(path, std::move(driver), nullptr);
}

void RemoveDevice(const std::wstring& path) {
    const KernelLock lock;
    TheKernel().devices.erase(FoldCase(path));
}

void AddHidInterface(const HidInterface& interface, std::shared_ptr<Driver> driver) {
    const KernelLock lock;
    const auto hid = std::make_shared<const HidInterface>(interface);
    TheKernel().hidInterfaces.push_back(hid);
    if (driver != nullptr) {
        PutDevice(interface.path, std::move(driver), hid);
    }
}

void RemoveHidInterfaces() {
    const KernelLock lock;
    for (const auto& hid : TheKernel().hidInterfaces) {
        TheKernel().devices.erase(FoldCase(hid->path));
    }
    TheKernel().hidInterfaces.clear();
}

}  // namespace emulation

HANDLE CreateFileW(const WCHAR* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* /*security*/,
                   DWORD disposition, DWORD flags, HANDLE /*templateFile*/) {
    const emulation::Operation operation(emulation::Call::kCreateFile);
    if (operation.Refused()) {
        return INVALID_HANDLE_VALUE;
    }
    if (path == nullptr || disposition != OPEN_EXISTING || (flags & FILE_FLAG_OVERLAPPED) == 0) {
        SetLastError(ERROR_INVALID_PARAMETER);  // nothing else is implemented
        return INVALID_HANDLE_VALUE;
    }
    auto file = std::make_shared<emulation::FileObject>(access, share);
    const DWORD error = emulation::Open(path, *file);
    emulation::TraceFile(emulation::TraceEvent::Kind::kOpen, path, error);
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
        return INVALID_HANDLE_VALUE;
    }
    return emulation::AddHandle(std::move(file));
}
