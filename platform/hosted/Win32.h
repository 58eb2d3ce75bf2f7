// The Win32 operations that this library uses, declared for machines that are not Windows. Names,
// types, argument order and results are those of the Win32 API; what is not declared here is not
// used. Each operation may be called from any thread and is a point at which the scheduled clock
// may let another thread run.
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

// A handle is a number in a pointer's clothes; this one is the number -1.
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

HANDLE CreateEventW(SECURITY_ATTRIBUTES* security, BOOL manualReset, BOOL initialState,
                    const WCHAR* name);
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);
HANDLE CreateThread(SECURITY_ATTRIBUTES* security, std::size_t stackSize,
                    LPTHREAD_START_ROUTINE start, LPVOID argument, DWORD flags, DWORD* threadId);
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
void Sleep(DWORD milliseconds);
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

HANDLE CreateFileW(const WCHAR* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                   DWORD disposition, DWORD flags, HANDLE templateFile);
BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD length, DWORD* moved, OVERLAPPED* overlapped);
BOOL WriteFile(HANDLE file, const void* buffer, DWORD length, DWORD* moved, OVERLAPPED* overlapped);
BOOL DeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD inLength, LPVOID out,
                     DWORD outLength, DWORD* moved, OVERLAPPED* overlapped);
BOOL GetOverlappedResult(HANDLE file, OVERLAPPED* overlapped, DWORD* moved, BOOL wait);
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

HDEVINFO SetupDiGetClassDevsW(const GUID* classGuid, const WCHAR* enumerator, HWND parent,
                              DWORD flags);
BOOL SetupDiEnumDeviceInterfaces(HDEVINFO list, SP_DEVINFO_DATA* info, const GUID* classGuid,
                                 DWORD index, SP_DEVICE_INTERFACE_DATA* data);
BOOL SetupDiGetDeviceInterfaceDetailW(HDEVINFO list, SP_DEVICE_INTERFACE_DATA* data,
                                      SP_DEVICE_INTERFACE_DETAIL_DATA_W* detail, DWORD size,
                                      DWORD* required, SP_DEVINFO_DATA* info);
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
BOOLEAN HidD_GetPreparsedData(HANDLE device, PHIDP_PREPARSED_DATA* data);
BOOLEAN HidD_FreePreparsedData(PHIDP_PREPARSED_DATA data);
NTSTATUS HidP_GetCaps(PHIDP_PREPARSED_DATA data, HIDP_CAPS* caps);
BOOLEAN HidD_GetAttributes(HANDLE device, HIDD_ATTRIBUTES* attributes);

// Configuration and text.
constexpr UINT CP_THREAD_ACP = 3;

DWORD GetCurrentDirectoryW(DWORD length, WCHAR* buffer);
DWORD GetPrivateProfileStringW(const WCHAR* section, const WCHAR* key, const WCHAR* defaultValue,
                               WCHAR* buffer, DWORD size, const WCHAR* path);
int WideCharToMultiByte(UINT codePage, DWORD flags, const WCHAR* wide, int wideLength, char* narrow,
                        int narrowSize, const char* defaultChar, BOOL* usedDefault);
