/* The relay driver of the I2C and USB routes: a kernel-mode driver that passes every request of a
 * host to a process in user mode and completes it with that process's answer. See RelayProtocol.h
 * and RelayQueue.h, whose lock also guards the extensions here. */
#include "testdrivers/RelayQueue.h"

/* Of every device object but the control device. */
struct Extension {
    uint32_t device; /* a RelayDevice */
    unsigned opens;
    int gone; /* unplugged; the object is deleted when its last handle is closed */
    int deleted;
};

/* What a host's file object keeps in FsContext. */
enum FileState {
    kFileNew,
    kFileOpen,
    kFileClosed, /* its last handle is closed, and the device still counts it */
    kFileRefused
};

static DRIVER_OBJECT* g_driver;

/* Used by SetPresent alone. */
static DEVICE_OBJECT* g_devices[kRelayDevices];
static unsigned g_devicesMade;

static const WCHAR* const g_links[kRelayDevices] = {L"\\DosDevices\\Global\\SPBNFCDRIVER",
                                                    L"\\DosDevices\\Global\\KEYBOARDNFC", NULL};
static const WCHAR g_controlName[] = L"\\Device\\" TAGPORT_RELAY_SPB_CONTROL;
static const WCHAR g_controlLink[] = L"\\DosDevices\\Global\\" TAGPORT_RELAY_SPB_CONTROL;

static struct Extension* ExtensionOf(DEVICE_OBJECT* device) {
    return (struct Extension*)device->DeviceExtension;
}

/* True once for a device that nobody uses any more: the caller deletes it. Under the lock. */
static int IsLastUse(struct Extension* extension) {
    if (!extension->gone || extension->opens != 0 || extension->deleted) {
        return 0;
    }
    extension->deleted = 1;
    return 1;
}

/* Counts a handle that was not opened after all; an unplugged device may go then. Under the
 * lock. */
static DEVICE_OBJECT* OpenFailed(PIRP irp) {
    IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
    DEVICE_OBJECT* device = stack->DeviceObject;
    if (stack->MajorFunction != IRP_MJ_CREATE) {
        return NULL;
    }
    stack->FileObject->FsContext = (PVOID)(ULONG_PTR)kFileRefused;
    --ExtensionOf(device)->opens;
    return IsLastUse(ExtensionOf(device)) ? device : NULL;
}

/* Makes a request pending and passes it on. */
static NTSTATUS Forward(DEVICE_OBJECT* device, PIRP irp, uint32_t kind, uint32_t controlCode,
                        const void* data, uint32_t dataSize, uint32_t length) {
    struct Extension* extension = ExtensionOf(device);
    struct Item* item;
    NTSTATUS refusal = STATUS_SUCCESS;
    KIRQL irql;
    if (dataSize > TAGPORT_RELAY_MOST_BYTES || length > TAGPORT_RELAY_MOST_BYTES) {
        return Complete(irp, STATUS_INVALID_PARAMETER, 0);
    }
    item = NewItem(kind, extension->device, data, dataSize, length);
    if (item == NULL) {
        return Complete(irp, STATUS_INSUFFICIENT_RESOURCES, 0);
    }
    item->message.controlCode = controlCode;

    irql = EnterLock();
    if (!HasOwner() || extension->gone) {
        refusal = STATUS_DEVICE_NOT_CONNECTED;
    } else if (kind == kRelayOpen && extension->opens != 0) {
        refusal = STATUS_SHARING_VIOLATION;
    } else {
        FILE_OBJECT* file = IoGetCurrentIrpStackLocation(irp)->FileObject;
        if (kind == kRelayOpen) {
            ++extension->opens;
            file->FsContext = (PVOID)(ULONG_PTR)kFileOpen;
        } else if (file->FsContext == (PVOID)(ULONG_PTR)kFileClosed) {
            refusal = STATUS_CANCELLED; /* was on its way when the handle was closed */
        } else if (file->FsContext != (PVOID)(ULONG_PTR)kFileOpen) {
            refusal = STATUS_INVALID_HANDLE;
        }
    }
    if (refusal != STATUS_SUCCESS) {
        if (kind == kRelayOpen) {
            IoGetCurrentIrpStackLocation(irp)->FileObject->FsContext =
                (PVOID)(ULONG_PTR)kFileRefused;
        }
        LeaveLock(irql);
        ExFreePool(item);
        return Complete(irp, refusal, 0);
    }
    return Pend(item, irp, irp->AssociatedIrp.SystemBuffer, 1, irql);
}

/* Gives a device its object and its name, or takes them away. At PASSIVE_LEVEL. */
static NTSTATUS Plug(uint32_t which) {
    WCHAR name[] = L"\\Device\\TagportRelay0000";
    UNICODE_STRING nameString;
    UNICODE_STRING linkString;
    DEVICE_OBJECT* device;
    NTSTATUS status;
    unsigned serial = g_devicesMade++ % 10000;
    WCHAR* digit = &name[sizeof(name) / sizeof(*name) - 2];
    if (g_devices[which] != NULL) {
        return STATUS_SUCCESS;
    }
    for (; *digit == L'0'; --digit) {
        *digit = (WCHAR)(L'0' + serial % 10);
        serial /= 10;
    }
    RtlInitUnicodeString(&nameString, name);
    status = IoCreateDevice(g_driver, sizeof(struct Extension), &nameString, FILE_DEVICE_UNKNOWN,
                            FILE_DEVICE_SECURE_OPEN, FALSE, &device);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    RtlZeroMemory(device->DeviceExtension, sizeof(struct Extension));
    ExtensionOf(device)->device = which;
    device->Flags |= DO_BUFFERED_IO;
    device->Flags &= ~(ULONG)DO_DEVICE_INITIALIZING;
    RtlInitUnicodeString(&linkString, g_links[which]);
    status = IoCreateSymbolicLink(&linkString, &nameString);
    if (!NT_SUCCESS(status)) {
        IoDeleteDevice(device);
        return status;
    }
    g_devices[which] = device;
    return STATUS_SUCCESS;
}

static void Unplug(uint32_t which) {
    UNICODE_STRING link;
    DEVICE_OBJECT* device = g_devices[which];
    int last;
    KIRQL irql;
    if (device == NULL) {
        return;
    }
    g_devices[which] = NULL;
    RtlInitUnicodeString(&link, g_links[which]);
    IoDeleteSymbolicLink(&link);
    irql = EnterLock();
    ExtensionOf(device)->gone = 1;
    ++ExtensionOf(device)->opens; /* this function's own use: nobody else deletes the device */
    LeaveLock(irql);
    FailPending(NULL, device, STATUS_DEVICE_NOT_CONNECTED);
    irql = EnterLock();
    --ExtensionOf(device)->opens;
    last = IsLastUse(ExtensionOf(device));
    LeaveLock(irql);
    if (last) {
        IoDeleteDevice(device);
    }
    Deliver();
}

static NTSTATUS SetPresent(uint32_t which, uint32_t present) {
    if (g_links[which] == NULL) {
        return present ? STATUS_INVALID_PARAMETER : STATUS_SUCCESS;
    }
    if (present) {
        return Plug(which);
    }
    Unplug(which);
    return STATUS_SUCCESS;
}

static NTSTATUS NTAPI DispatchCreate(DEVICE_OBJECT* device, PIRP irp) {
    if (IsControl(device)) {
        return ControlCreate(irp);
    }
    return Forward(device, irp, kRelayOpen, 0, NULL, 0, 0);
}

/* Ends the requests of a file whose last handle is closed, and refuses further ones. */
static void EndRequests(FILE_OBJECT* file, DEVICE_OBJECT* device) {
    KIRQL irql = EnterLock();
    if (file->FsContext == (PVOID)(ULONG_PTR)kFileOpen) {
        file->FsContext = (PVOID)(ULONG_PTR)kFileClosed;
    }
    LeaveLock(irql);
    FailPending(file, device, STATUS_CANCELLED);
}

static NTSTATUS NTAPI DispatchCleanup(DEVICE_OBJECT* device, PIRP irp) {
    if (IsControl(device)) {
        return ControlCleanup(irp);
    }
    EndRequests(IoGetCurrentIrpStackLocation(irp)->FileObject, device);
    Deliver();
    return Complete(irp, STATUS_SUCCESS, 0);
}

/* Some systems send no clean-up, so this does the same first. */
static NTSTATUS NTAPI DispatchClose(DEVICE_OBJECT* device, PIRP irp) {
    FILE_OBJECT* file = IoGetCurrentIrpStackLocation(irp)->FileObject;
    struct Extension* extension = ExtensionOf(device);
    int last = 0;
    KIRQL irql;
    if (IsControl(device)) {
        return ControlClose(irp);
    }
    EndRequests(file, device);
    irql = EnterLock();
    if (file->FsContext == (PVOID)(ULONG_PTR)kFileClosed) {
        file->FsContext = (PVOID)(ULONG_PTR)kFileNew;
        --extension->opens;
        if (extension->opens == 0 && !extension->gone && HasOwner()) {
            struct Item* item = NewItem(kRelayClose, extension->device, NULL, 0, 0);
            if (item != NULL) {
                Post(item);
            }
        }
        last = IsLastUse(extension);
    }
    LeaveLock(irql);
    Complete(irp, STATUS_SUCCESS, 0);
    Deliver();
    if (last) {
        IoDeleteDevice(device);
    }
    return STATUS_SUCCESS;
}

static NTSTATUS NTAPI DispatchRead(DEVICE_OBJECT* device, PIRP irp) {
    if (IsControl(device)) {
        return Complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
    }
    return Forward(device, irp, kRelayRead, 0, NULL, 0,
                   IoGetCurrentIrpStackLocation(irp)->Parameters.Read.Length);
}

static NTSTATUS NTAPI DispatchWrite(DEVICE_OBJECT* device, PIRP irp) {
    const ULONG length = IoGetCurrentIrpStackLocation(irp)->Parameters.Write.Length;
    if (IsControl(device)) {
        return Complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
    }
    return Forward(device, irp, kRelayWrite, 0, irp->AssociatedIrp.SystemBuffer, length, length);
}

static NTSTATUS NTAPI DispatchControl(DEVICE_OBJECT* device, PIRP irp) {
    IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
    const ULONG code = stack->Parameters.DeviceIoControl.IoControlCode;
    if (IsControl(device)) {
        return ControlRequest(irp);
    }
    if ((code & 3) != METHOD_BUFFERED) { /* the other methods give no buffer for both ways */
        return Complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
    }
    return Forward(device, irp, kRelayControl, code, irp->AssociatedIrp.SystemBuffer,
                   stack->Parameters.DeviceIoControl.InputBufferLength,
                   stack->Parameters.DeviceIoControl.OutputBufferLength);
}

static void NTAPI Unload(DRIVER_OBJECT* driver) {
    ReleaseRelay(g_controlLink);
    while (driver->DeviceObject != NULL) {
        IoDeleteDevice(driver->DeviceObject);
    }
}

NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT* driver, UNICODE_STRING* registryPath) {
    static const struct RelayHooks hooks = {SetPresent, OpenFailed};
    (void)registryPath;
    g_driver = driver;
    driver->MajorFunction[IRP_MJ_CREATE] = DispatchCreate;
    driver->MajorFunction[IRP_MJ_CLEANUP] = DispatchCleanup;
    driver->MajorFunction[IRP_MJ_CLOSE] = DispatchClose;
    driver->MajorFunction[IRP_MJ_READ] = DispatchRead;
    driver->MajorFunction[IRP_MJ_WRITE] = DispatchWrite;
    driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = DispatchControl;
    driver->DriverUnload = Unload;
    return MakeRelay(driver, g_controlName, g_controlLink, &hooks);
}
