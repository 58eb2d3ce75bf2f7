// The Win32 operations that this library uses, declared for machines that are not Windows. Names,
// types, argument order and results are those of the Win32 API; what is not declared here is not
// used. The comment of an operation lists what the library relies on.
//
// Rules for all operations: any thread may call them. A successful call does not clear the last
// error, unless its comment says so. A handle that is closed, or belongs to another kind of object,
// fails with ERROR_INVALID_HANDLE. On the scheduled clock another thread may run before and after
// each call.
#pragma once

#include <cstddef>
#include <cstdint>

using BOOL = int;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using USHORT = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using ULONG = std::uint32_t;
using LONG = std::int32_t;
using NTSTATUS = std::int32_t;
using HRESULT = std::int32_t;
using ULONG_PTR = std::uintptr_t;
using BOOLEAN = std::uint8_t;
using WCHAR = wchar_t;
using HANDLE = void*;
using HWND = void*;
using LPVOID = void*;

#define WINAPI

constexpr BOOL TRUE = 1;
constexpr BOOL FALSE = 0;

// A handle is a number that has the type of a pointer; this one is the number -1.
// NOLINTNEXTLINE(performance-no-int-to-ptr)
inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(~ULONG_PTR{0});

// Last-error codes.
constexpr DWORD ERROR_SUCCESS = 0;
constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
constexpr DWORD ERROR_ACCESS_DENIED = 5;
constexpr DWORD ERROR_INVALID_HANDLE = 6;
constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr DWORD ERROR_GEN_FAILURE = 31;
constexpr DWORD ERROR_SHARING_VIOLATION = 32;
constexpr DWORD ERROR_INVALID_PARAMETER = 87;
constexpr DWORD ERROR_SEM_TIMEOUT = 121;
constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
constexpr DWORD ERROR_MORE_DATA = 234;
constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
constexpr DWORD ERROR_OPERATION_ABORTED = 995;
constexpr DWORD ERROR_IO_INCOMPLETE = 996;
constexpr DWORD ERROR_IO_PENDING = 997;
constexpr DWORD ERROR_IO_DEVICE = 1117;
constexpr DWORD ERROR_DEVICE_NOT_CONNECTED = 1167;
constexpr DWORD ERROR_NOT_FOUND = 1168;

/// The last error belongs to the thread, and is zero in a new thread. A caller that compares it
/// after a success has to clear it first.
DWORD GetLastError();
void SetLastError(DWORD code);

/// The HRESULT of a last-error code: zero and negative values stay, any other keeps its low 16
/// bits.
constexpr HRESULT HRESULT_FROM_WIN32(DWORD code) {
    return static_cast<HRESULT>(code) <= 0 ? static_cast<HRESULT>(code)
                                           : static_cast<HRESULT>((code & 0xFFFFU) | 0x80070000U);
}

// Handles, events, threads and waits.
constexpr DWORD INFINITE = 0xFFFFFFFF;
constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_TIMEOUT = 258;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;

struct SECURITY_ATTRIBUTES;
using LPTHREAD_START_ROUTINE = DWORD (*)(LPVOID);

/// Makes an event without a name. The value of a handle, of an event or of anything else, is given
/// out once: a caller that still uses an old value is refused and never meets another object.
HANDLE CreateEventW(SECURITY_ATTRIBUTES* security, BOOL manualReset, BOOL initialState,
                    const WCHAR* name);
/// A manual-reset event releases every thread that waits at this moment, even if ResetEvent follows
/// at once, and stays set. An auto-reset event releases exactly one of them; if none waits, it
/// stays set for the next one.
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);
/// Starts a thread at once; no flags. When the thread ends, the requests that it started and that
/// are still pending are cancelled, and then its handle is signalled and stays so.
HANDLE CreateThread(SECURITY_ATTRIBUTES* security, std::size_t stackSize,
                    LPTHREAD_START_ROUTINE start, LPVOID argument, DWORD flags, DWORD* threadId);
/// Waits for an event, for the end of a thread, or for a device (a request without an event has
/// ended). INVALID_HANDLE_VALUE stands for the own process and waits for its end. With 0
/// milliseconds it never blocks. Taking an auto-reset event resets it. If the handle is closed
/// meanwhile, the wait goes on, on the object itself. It then ends when the object is signalled
/// through another reference (a pending request of that event, the end of that thread, the failed
/// requests of that device) or when the time is over.
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
void Sleep(DWORD milliseconds);
/// Closes an event, a thread or a device, also while other threads wait on it. A thread runs on
/// without its handle. Closing a device ends the requests of this handle: the driver may fail them
/// when its last handle is closed; the others fail with ERROR_OPERATION_ABORTED. Closing
/// INVALID_HANDLE_VALUE succeeds and does nothing.
BOOL CloseHandle(HANDLE handle);

// Overlapped file and device I/O.
constexpr DWORD GENERIC_READ = 0x80000000;
constexpr DWORD GENERIC_WRITE = 0x40000000;
constexpr DWORD FILE_SHARE_READ = 1;
constexpr DWORD FILE_SHARE_WRITE = 2;
constexpr DWORD OPEN_EXISTING = 3;
constexpr DWORD FILE_FLAG_OVERLAPPED = 0x40000000;
constexpr ULONG_PTR STATUS_PENDING = 0x103;

struct OVERLAPPED {
    ULONG_PTR Internal;      // status of the request; STATUS_PENDING while it is under way
    ULONG_PTR InternalHigh;  // bytes moved
    DWORD Offset;
    DWORD OffsetHigh;
    HANDLE hEvent;
};

/// Opens a device for overlapped requests, by a path without regard to case. Fails with
/// ERROR_FILE_NOT_FOUND if there is no device, and with ERROR_SHARING_VIOLATION if the share mode
/// of an open handle or of this call forbids it; share mode 0 allows one handle.
HANDLE CreateFileW(const WCHAR* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                   DWORD disposition, DWORD flags, HANDLE templateFile);
/// These three start an overlapped request. The start puts STATUS_PENDING into Internal and resets
/// the request's event, or the device's signal if it has no event. FALSE with ERROR_IO_PENDING: the
/// request is under way. TRUE: it has ended already. FALSE with another code: it failed at once;
/// Internal stays STATUS_PENDING and nothing is signalled. The end of a request writes the count
/// and the status first and signals the event, or the device, after that. The OVERLAPPED and the
/// buffer must stay valid until then.
BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD length, DWORD* moved, OVERLAPPED* overlapped);
BOOL WriteFile(HANDLE file, const void* buffer, DWORD length, DWORD* moved, OVERLAPPED* overlapped);
BOOL DeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD inLength, LPVOID out,
                     DWORD outLength, DWORD* moved, OVERLAPPED* overlapped);
/// The outcome of a request. Without waiting it looks at the OVERLAPPED alone and not at the
/// handle: STATUS_PENDING becomes ERROR_IO_INCOMPLETE, also for a request that failed at its start.
/// When it waits, it waits for the event or the device and takes any signal of it for the end of
/// the request. A stored status is turned into a last-error code; a stored 0x8007xxxx,
/// sign-extended or not, becomes its low 16 bits.
BOOL GetOverlappedResult(HANDLE file, OVERLAPPED* overlapped, DWORD* moved, BOOL wait);
/// Whether the request of this OVERLAPPED has ended, by its status alone. Leaves the last error.
bool HasOverlappedIoCompleted(const OVERLAPPED* overlapped);
/// Cancels the pending request of this handle and this OVERLAPPED, or every pending request of this
/// handle for a null OVERLAPPED, whichever thread started them. They end with
/// ERROR_OPERATION_ABORTED. Requests of other handles of the device stay. If there is no such
/// request, it fails with ERROR_NOT_FOUND. A request may end by itself before it is cancelled, so
/// the caller has to look at its outcome.
BOOL CancelIoEx(HANDLE file, OVERLAPPED* overlapped);

// Device enumeration.
struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};
using HDEVINFO = HANDLE;
constexpr DWORD DIGCF_PRESENT = 0x02;
constexpr DWORD DIGCF_DEVICEINTERFACE = 0x10;

struct SP_DEVINFO_DATA;
struct SP_DEVICE_INTERFACE_DATA {
    DWORD cbSize;
    GUID InterfaceClassGuid;
    DWORD Flags;
    ULONG_PTR Reserved;
};
struct SP_DEVICE_INTERFACE_DETAIL_DATA_W {
    DWORD cbSize;
    WCHAR DevicePath[1];
};

/// The list of the devices that are there at the moment of the call. It must be destroyed.
HDEVINFO SetupDiGetClassDevsW(const GUID* classGuid, const WCHAR* enumerator, HWND parent,
                              DWORD flags);
/// The interface with this index. cbSize must be set. After the last one it fails with
/// ERROR_NO_MORE_ITEMS.
BOOL SetupDiEnumDeviceInterfaces(HDEVINFO list, SP_DEVINFO_DATA* info, const GUID* classGuid,
                                 DWORD index, SP_DEVICE_INTERFACE_DATA* data);
/// The path of an interface, after the structure's fixed part. A call without a buffer, or with one
/// that is too small, fails with ERROR_INSUFFICIENT_BUFFER and returns the size in bytes. cbSize
/// must be the size of the structure itself.
BOOL SetupDiGetDeviceInterfaceDetailW(HDEVINFO list, SP_DEVICE_INTERFACE_DATA* data,
                                      SP_DEVICE_INTERFACE_DETAIL_DATA_W* detail, DWORD size,
                                      DWORD* required, SP_DEVINFO_DATA* info);
/// Sets the last error to zero when it succeeds.
BOOL SetupDiDestroyDeviceInfoList(HDEVINFO list);

// Human interface devices.
struct HIDP_PREPARSED_DATA;
using PHIDP_PREPARSED_DATA = HIDP_PREPARSED_DATA*;
constexpr NTSTATUS HIDP_STATUS_SUCCESS = 0x00110000;

struct HIDP_CAPS {
    USHORT Usage;
    USHORT UsagePage;
    USHORT InputReportByteLength;
    USHORT OutputReportByteLength;
};
struct HIDD_ATTRIBUTES {
    ULONG Size;
    USHORT VendorID;
    USHORT ProductID;
    USHORT VersionNumber;
};

void HidD_GetHidGuid(GUID* guid);
/// The description of an open device, which must be freed. Fails for other devices.
BOOLEAN HidD_GetPreparsedData(HANDLE device, PHIDP_PREPARSED_DATA* data);
BOOLEAN HidD_FreePreparsedData(PHIDP_PREPARSED_DATA data);
/// Usage and report lengths. The result is HIDP_STATUS_SUCCESS, or zero for failure: the library
/// takes no other value for a failure.
NTSTATUS HidP_GetCaps(PHIDP_PREPARSED_DATA data, HIDP_CAPS* caps);
BOOLEAN HidD_GetAttributes(HANDLE device, HIDD_ATTRIBUTES* attributes);

// Configuration and text.
constexpr UINT CP_THREAD_ACP = 3;

/// Returns the length without the terminating zero, or, if the buffer is too small, the size that
/// is needed with it. Directories are separated by '/' here. What a wide text cannot hold as it is,
/// a byte that is not UTF-8 or a backslash in a name, becomes the value 0xDC00 plus the byte, and
/// GetPrivateProfileStringW turns it back. Zero is failure.
DWORD GetCurrentDirectoryW(DWORD length, WCHAR* buffer);
/// Copies the key's value, or the default, and returns its length; a value that is too long is cut
/// to `size` - 1 characters, and one with a zero in it ends there. Section and key are compared
/// without regard to case. Blanks around section, key and value are dropped (tabs, form feeds and
/// the character 0x1A, too), and then one pair of equal quotes, single or double, around the value.
/// A line that starts with ';' is a comment. The first match in the first section of the name
/// counts; a second section of that name is not read. A line without '=' is no key, and a section
/// line without ']' opens no section. CR, LF and CR LF end a line. The text is UTF-8, or UTF-16LE
/// after a byte order mark. '\' and '/' separate directories. If the default is given, the last
/// error is ERROR_FILE_NOT_FOUND if the key or the file is missing, and ERROR_ACCESS_DENIED if the
/// file cannot be read: it is a directory, a FIFO, a device or larger than 1 MiB.
DWORD GetPrivateProfileStringW(const WCHAR* section, const WCHAR* key, const WCHAR* defaultValue,
                               WCHAR* buffer, DWORD size, const WCHAR* path);
/// Converts to UTF-8 whatever the thread's code page is, and returns the number of bytes, or, for a
/// buffer size of zero, the number that is needed. Length -1 stands for a text up to and with its
/// terminating zero. A buffer that is too small returns zero and ERROR_INSUFFICIENT_BUFFER. What is
/// no code point becomes U+FFFD.
int WideCharToMultiByte(UINT codePage, DWORD flags, const WCHAR* wide, int wideLength, char* narrow,
                        int narrowSize, const char* defaultChar, BOOL* usedDefault);
