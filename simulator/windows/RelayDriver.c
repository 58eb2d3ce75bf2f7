/* The relay driver of the I2C and USB routes: a kernel-mode driver that passes every request of a
 * host to a process in user mode and completes it with that process's answer. See RelayProtocol.h.
 *
 * One spin lock guards every list. A request is completed by whoever has taken it: the one whose
 * IoSetCancelRoutine(irp, NULL) gave the routine back, or else the cancel routine. The lock is
 * never held over IoCompleteRequest. */
#include <ddk/ntifs.h>

#include "simulator/windows/RelayProtocol.h"

#define POOL_TAG 0x4E546167u /* "gaTN" */

/* A message for the device process. That of a host's request lives as long as the request. */
struct Item {
    LIST_ENTRY inMessages; /* until the message is delivered */
    LIST_ENTRY inPending;  /* until the request is taken */
    PIRP irp;              /* the request; NULL for word of a close or of a cancellation */
    int delivered;
    struct RelayMessage message;
};

/* Of every device object. */
struct Extension {
    uint32_t device; /* a RelayDevice, or kRelayDevices for the control device */
    unsigned opens;
    int gone;        /* unplugged; the object is deleted when its last handle is closed */
    int deleted;
};

/* What a host's file object keeps in FsContext. */
enum FileState { kFileNew, kFileOpen, kFileRefused };

static DRIVER_OBJECT *g_driver;
static DEVICE_OBJECT *g_control;

/* Guards the variables up to g_lastId, and the fields of items and extensions. */
static KSPIN_LOCK g_lock;
static LIST_ENTRY g_messages; /* items that wait for a TAGPORT_RELAY_NEXT */
static LIST_ENTRY g_pending;  /* items of requests that wait for their answer */
static LIST_ENTRY g_nexts;    /* IRPs of TAGPORT_RELAY_NEXT */
static FILE_OBJECT *g_owner;  /* the device process's handle */
static uint64_t g_lastId;

static KEVENT g_plugging; /* taken while a device comes or goes; guards the two below */
static DEVICE_OBJECT *g_devices[kRelayDevices];
static unsigned g_devicesMade;

static const WCHAR *const g_links[kRelayDevices] = {
    L"\\DosDevices\\Global\\SPBNFCDRIVER", L"\\DosDevices\\Global\\KEYBOARDNFC", NULL};
static const WCHAR g_controlName[] = L"\\Device\\" TAGPORT_RELAY_SPB_CONTROL;
static const WCHAR g_controlLink[] = L"\\DosDevices\\Global\\" TAGPORT_RELAY_SPB_CONTROL;

static struct Extension *ExtensionOf(DEVICE_OBJECT *device) {
    return (struct Extension *)device->DeviceExtension;
}

static KIRQL EnterLock(void) {
    KIRQL irql;
    KeAcquireSpinLock(&g_lock, &irql);
    return irql;
}

static void LeaveLock(KIRQL irql) {
    KeReleaseSpinLock(&g_lock, irql);
}

static NTSTATUS Complete(PIRP irp, NTSTATUS status, ULONG_PTR information) {
    irp->IoStatus.Status = status;
    irp->IoStatus.Information = information;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
}

/* Passes messages on for as long as there are a message and an IRP that waits for one. Called
 * without the lock. */
static void Deliver(void) {
    for (;;) {
        struct Item *item = NULL;
        PIRP next = NULL;
        KIRQL irql = EnterLock();
        while (next == NULL && !IsListEmpty(&g_messages) && !IsListEmpty(&g_nexts)) {
            PLIST_ENTRY entry = RemoveHeadList(&g_nexts);
            next = CONTAINING_RECORD(entry, IRP, Tail.Overlay.ListEntry);
            if (IoSetCancelRoutine(next, NULL) == NULL) {
                InitializeListHead(entry); /* its cancel routine takes it out of no list */
                next = NULL;
            }
        }
        if (next != NULL) {
            item = CONTAINING_RECORD(RemoveHeadList(&g_messages), struct Item, inMessages);
            item->delivered = 1;
            RtlCopyMemory(next->AssociatedIrp.SystemBuffer, &item->message, sizeof(item->message));
            if (item->irp == NULL) {
                ExFreePool(item);
            }
        }
        LeaveLock(irql);
        if (next == NULL) {
            return;
        }
        Complete(next, STATUS_SUCCESS, sizeof(struct RelayMessage));
    }
}

/* The item of a request that is no longer pending: tells the process if it knows the request.
 * Under the lock. */
static void Retire(struct Item *item) {
    item->irp = NULL;
    if (item->delivered && g_owner != NULL) {
        item->message.kind = kRelayCancel;
        item->message.dataSize = 0;
        InsertTailList(&g_messages, &item->inMessages);
        return;
    }
    if (!item->delivered) {
        RemoveEntryList(&item->inMessages);
    }
    ExFreePool(item);
}

/* Takes a pending request, so that the caller completes it. False when its cancel routine does.
 * Under the lock. */
static int Take(struct Item *item) {
    if (IoSetCancelRoutine(item->irp, NULL) == NULL) {
        return 0;
    }
    RemoveEntryList(&item->inPending);
    return 1;
}

/* Counts a handle that was not opened after all. Under the lock. */
static void OpenFailed(PIRP irp) {
    IO_STACK_LOCATION *stack = IoGetCurrentIrpStackLocation(irp);
    if (stack->MajorFunction == IRP_MJ_CREATE) {
        stack->FileObject->FsContext = (PVOID)(ULONG_PTR)kFileRefused;
        --ExtensionOf(stack->DeviceObject)->opens;
    }
}

static void NTAPI CancelHostRequest(DEVICE_OBJECT *device, PIRP irp) {
    struct Item *item = (struct Item *)irp->Tail.Overlay.DriverContext[0];
    KIRQL irql;
    (void)device;
    IoReleaseCancelSpinLock(irp->CancelIrql);
    irql = EnterLock();
    RemoveEntryList(&item->inPending);
    Retire(item);
    OpenFailed(irp);
    LeaveLock(irql);
    Complete(irp, STATUS_CANCELLED, 0);
    Deliver();
}

static void NTAPI CancelNext(DEVICE_OBJECT *device, PIRP irp) {
    KIRQL irql;
    (void)device;
    IoReleaseCancelSpinLock(irp->CancelIrql);
    irql = EnterLock();
    RemoveEntryList(&irp->Tail.Overlay.ListEntry);
    LeaveLock(irql);
    Complete(irp, STATUS_CANCELLED, 0);
}

/* Fails the pending requests of a file, of a device, or all for two null pointers. */
static void FailPending(FILE_OBJECT *file, DEVICE_OBJECT *device, NTSTATUS status) {
    for (;;) {
        PIRP irp = NULL;
        PLIST_ENTRY entry;
        KIRQL irql = EnterLock();
        for (entry = g_pending.Flink; irp == NULL && entry != &g_pending;) {
            struct Item *item = CONTAINING_RECORD(entry, struct Item, inPending);
            IO_STACK_LOCATION *stack = IoGetCurrentIrpStackLocation(item->irp);
            entry = entry->Flink;
            if ((file == NULL || stack->FileObject == file) &&
                (device == NULL || stack->DeviceObject == device) && Take(item)) {
                irp = item->irp;
                Retire(item);
                OpenFailed(irp);
            }
        }
        LeaveLock(irql);
        if (irp == NULL) {
            return;
        }
        Complete(irp, status, 0);
    }
}

static struct Item *NewItem(uint32_t kind, uint32_t device) {
    struct Item *item = ExAllocatePoolWithTag(NonPagedPool, sizeof(*item), POOL_TAG);
    if (item != NULL) {
        RtlZeroMemory(item, sizeof(*item));
        item->message.kind = kind;
        item->message.device = device;
    }
    return item;
}

/* Makes a request pending and passes it on. */
static NTSTATUS Forward(DEVICE_OBJECT *device, PIRP irp, uint32_t kind, uint32_t controlCode,
                        const void *data, uint32_t dataSize, uint32_t length) {
    struct Extension *extension = ExtensionOf(device);
    struct Item *item;
    NTSTATUS refusal = STATUS_SUCCESS;
    int cancelled = 0;
    KIRQL irql;
    if (dataSize > TAGPORT_RELAY_MOST_BYTES || length > TAGPORT_RELAY_MOST_BYTES) {
        return Complete(irp, STATUS_INVALID_PARAMETER, 0);
    }
    item = NewItem(kind, extension->device);
    if (item == NULL) {
        return Complete(irp, STATUS_INSUFFICIENT_RESOURCES, 0);
    }
    item->irp = irp;
    item->message.controlCode = controlCode;
    item->message.thread = (uint32_t)(ULONG_PTR)PsGetCurrentThreadId();
    item->message.length = length;
    item->message.dataSize = dataSize;
    if (dataSize != 0) {
        RtlCopyMemory(item->message.data, data, dataSize);
    }
    irp->Tail.Overlay.DriverContext[0] = item;

    irql = EnterLock();
    if (g_owner == NULL || extension->gone) {
        refusal = STATUS_DEVICE_NOT_CONNECTED;
    } else if (kind == kRelayOpen && extension->opens != 0) {
        refusal = STATUS_SHARING_VIOLATION;
    } else {
        FILE_OBJECT *file = IoGetCurrentIrpStackLocation(irp)->FileObject;
        if (kind == kRelayOpen) {
            ++extension->opens;
            file->FsContext = (PVOID)(ULONG_PTR)kFileOpen;
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
    item->message.id = ++g_lastId;
    InsertTailList(&g_messages, &item->inMessages);
    InsertTailList(&g_pending, &item->inPending);
    IoMarkIrpPending(irp);
    IoSetCancelRoutine(irp, CancelHostRequest);
    if (irp->Cancel && Take(item)) { /* cancelled before it had a cancel routine */
        cancelled = 1;
        Retire(item);
        OpenFailed(irp);
    }
    LeaveLock(irql);
    if (cancelled) {
        Complete(irp, STATUS_CANCELLED, 0);
    } else {
        Deliver();
    }
    return STATUS_PENDING;
}

/* Gives a device its object and its name, or takes them away. At PASSIVE_LEVEL. */
static NTSTATUS Plug(uint32_t which) {
    WCHAR name[] = L"\\Device\\TagportRelay0000";
    UNICODE_STRING nameString;
    UNICODE_STRING linkString;
    DEVICE_OBJECT *device;
    NTSTATUS status;
    unsigned serial = g_devicesMade++ % 10000;
    WCHAR *digit = &name[sizeof(name) / sizeof(*name) - 2];
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

/* True once for a device that nobody uses any more: the caller deletes it. Under the lock. */
static int IsLastUse(struct Extension *extension) {
    if (!extension->gone || extension->opens != 0 || extension->deleted) {
        return 0;
    }
    extension->deleted = 1;
    return 1;
}

static void Unplug(uint32_t which) {
    UNICODE_STRING link;
    DEVICE_OBJECT *device = g_devices[which];
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
    LeaveLock(irql);
    FailPending(NULL, device, STATUS_DEVICE_NOT_CONNECTED);
    irql = EnterLock();
    last = IsLastUse(ExtensionOf(device));
    LeaveLock(irql);
    if (last) {
        IoDeleteDevice(device);
    }
    Deliver();
}

/* The device process, by its handle `owner`, wants a device to be there or not. */
static NTSTATUS SetPresent(FILE_OBJECT *owner, uint32_t which, int present) {
    NTSTATUS status = STATUS_SUCCESS;
    KeWaitForSingleObject(&g_plugging, Executive, KernelMode, FALSE, NULL);
    if (g_owner != owner) {
        status = STATUS_ACCESS_DENIED; /* its handle has been closed meanwhile */
    } else if (present) {
        status = Plug(which);
    } else {
        Unplug(which);
    }
    KeSetEvent(&g_plugging, IO_NO_INCREMENT, FALSE);
    return status;
}

/* The device process has gone. */
static void ReleaseControl(void) {
    uint32_t which;
    KIRQL irql = EnterLock();
    g_owner = NULL;
    LeaveLock(irql);
    KeWaitForSingleObject(&g_plugging, Executive, KernelMode, FALSE, NULL);
    for (which = 0; which < kRelayDevices; ++which) {
        Unplug(which);
    }
    KeSetEvent(&g_plugging, IO_NO_INCREMENT, FALSE);
    FailPending(NULL, NULL, STATUS_DEVICE_NOT_CONNECTED);
    for (;;) {
        PIRP next = NULL;
        irql = EnterLock();
        while (next == NULL && !IsListEmpty(&g_nexts)) {
            PLIST_ENTRY entry = RemoveHeadList(&g_nexts);
            next = CONTAINING_RECORD(entry, IRP, Tail.Overlay.ListEntry);
            if (IoSetCancelRoutine(next, NULL) == NULL) {
                InitializeListHead(entry);
                next = NULL;
            }
        }
        LeaveLock(irql);
        if (next == NULL) {
            break;
        }
        Complete(next, STATUS_CANCELLED, 0);
    }
    irql = EnterLock();
    while (!IsListEmpty(&g_messages)) {
        struct Item *item =
            CONTAINING_RECORD(RemoveHeadList(&g_messages), struct Item, inMessages);
        if (item->irp == NULL) {
            ExFreePool(item);
        } else {
            item->delivered = 1; /* its cancel routine is about to retire it */
        }
    }
    LeaveLock(irql);
}

static NTSTATUS WaitForMessage(PIRP irp) {
    int cancelled = 0;
    KIRQL irql = EnterLock();
    IoMarkIrpPending(irp);
    InsertTailList(&g_nexts, &irp->Tail.Overlay.ListEntry);
    IoSetCancelRoutine(irp, CancelNext);
    if (irp->Cancel && IoSetCancelRoutine(irp, NULL) != NULL) {
        RemoveEntryList(&irp->Tail.Overlay.ListEntry);
        cancelled = 1;
    }
    LeaveLock(irql);
    if (cancelled) {
        Complete(irp, STATUS_CANCELLED, 0);
    } else {
        Deliver();
    }
    return STATUS_PENDING;
}

static void Answer(const struct RelayAnswer *answer) {
    PIRP irp = NULL;
    PLIST_ENTRY entry;
    NTSTATUS status = (NTSTATUS)answer->status;
    ULONG_PTR count = answer->count;
    KIRQL irql = EnterLock();
    if (status == STATUS_PENDING) {
        status = STATUS_UNSUCCESSFUL; /* a request cannot end with it */
    }
    for (entry = g_pending.Flink; entry != &g_pending; entry = entry->Flink) {
        struct Item *item = CONTAINING_RECORD(entry, struct Item, inPending);
        if (item->message.id != answer->id) {
            continue;
        }
        if (item->delivered && Take(item)) {
            const ULONG_PTR most = item->message.length;
            irp = item->irp;
            count = count < most ? count : most;
            if (item->message.kind == kRelayRead || item->message.kind == kRelayControl) {
                count = count < answer->dataSize ? count : answer->dataSize;
                RtlCopyMemory(irp->AssociatedIrp.SystemBuffer, answer->data, count);
            } else if (item->message.kind == kRelayOpen && !NT_SUCCESS(status)) {
                OpenFailed(irp);
            }
            ExFreePool(item);
        }
        break;
    }
    LeaveLock(irql);
    if (irp != NULL) {
        Complete(irp, status, count);
    }
}

static NTSTATUS ControlRequest(PIRP irp, IO_STACK_LOCATION *stack) {
    const ULONG inSize = stack->Parameters.DeviceIoControl.InputBufferLength;
    const ULONG outSize = stack->Parameters.DeviceIoControl.OutputBufferLength;
    const void *const in = irp->AssociatedIrp.SystemBuffer;
    if (stack->FileObject != g_owner) {
        return Complete(irp, STATUS_ACCESS_DENIED, 0);
    }
    switch (stack->Parameters.DeviceIoControl.IoControlCode) {
    case TAGPORT_RELAY_NEXT:
        if (outSize < sizeof(struct RelayMessage)) {
            return Complete(irp, STATUS_BUFFER_TOO_SMALL, 0);
        }
        return WaitForMessage(irp);
    case TAGPORT_RELAY_ANSWER:
        if (inSize < sizeof(struct RelayAnswer) ||
            ((const struct RelayAnswer *)in)->dataSize > TAGPORT_RELAY_MOST_BYTES) {
            return Complete(irp, STATUS_INVALID_PARAMETER, 0);
        }
        Answer((const struct RelayAnswer *)in);
        return Complete(irp, STATUS_SUCCESS, 0);
    case TAGPORT_RELAY_PLUG: {
        const struct RelayPlug *plug = (const struct RelayPlug *)in;
        if (inSize < sizeof(*plug) || plug->device >= kRelayDevices ||
            g_links[plug->device] == NULL) {
            return Complete(irp, STATUS_INVALID_PARAMETER, 0);
        }
        return Complete(irp, SetPresent(stack->FileObject, plug->device, plug->present != 0), 0);
    }
    default:
        return Complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
    }
}

static NTSTATUS NTAPI DispatchCreate(DEVICE_OBJECT *device, PIRP irp) {
    if (device == g_control) {
        FILE_OBJECT *file = IoGetCurrentIrpStackLocation(irp)->FileObject;
        KIRQL irql = EnterLock();
        const int owned = g_owner != NULL;
        if (!owned) {
            g_owner = file;
        }
        LeaveLock(irql);
        return Complete(irp, owned ? STATUS_SHARING_VIOLATION : STATUS_SUCCESS, 0);
    }
    return Forward(device, irp, kRelayOpen, 0, NULL, 0, 0);
}

/* The last handle is closed: its requests end now. */
static NTSTATUS NTAPI DispatchCleanup(DEVICE_OBJECT *device, PIRP irp) {
    FILE_OBJECT *file = IoGetCurrentIrpStackLocation(irp)->FileObject;
    if (device == g_control) {
        if (file == g_owner) {
            ReleaseControl();
        }
    } else {
        FailPending(file, device, STATUS_CANCELLED);
        Deliver();
    }
    return Complete(irp, STATUS_SUCCESS, 0);
}

/* Some systems send no clean-up, so this does the same first. */
static NTSTATUS NTAPI DispatchClose(DEVICE_OBJECT *device, PIRP irp) {
    FILE_OBJECT *file = IoGetCurrentIrpStackLocation(irp)->FileObject;
    struct Extension *extension = ExtensionOf(device);
    int last = 0;
    KIRQL irql;
    if (device == g_control) {
        if (file == g_owner) {
            ReleaseControl();
        }
        return Complete(irp, STATUS_SUCCESS, 0);
    }
    FailPending(file, device, STATUS_CANCELLED);
    irql = EnterLock();
    if (file->FsContext == (PVOID)(ULONG_PTR)kFileOpen) {
        file->FsContext = (PVOID)(ULONG_PTR)kFileNew;
        --extension->opens;
        if (extension->opens == 0 && !extension->gone && g_owner != NULL) {
            struct Item *item = NewItem(kRelayClose, extension->device);
            if (item != NULL) {
                item->message.id = ++g_lastId;
                InsertTailList(&g_messages, &item->inMessages);
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

static NTSTATUS NTAPI DispatchRead(DEVICE_OBJECT *device, PIRP irp) {
    if (device == g_control) {
        return Complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
    }
    return Forward(device, irp, kRelayRead, 0, NULL, 0,
                   IoGetCurrentIrpStackLocation(irp)->Parameters.Read.Length);
}

static NTSTATUS NTAPI DispatchWrite(DEVICE_OBJECT *device, PIRP irp) {
    const ULONG length = IoGetCurrentIrpStackLocation(irp)->Parameters.Write.Length;
    if (device == g_control) {
        return Complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
    }
    return Forward(device, irp, kRelayWrite, 0, irp->AssociatedIrp.SystemBuffer, length, length);
}

static NTSTATUS NTAPI DispatchControl(DEVICE_OBJECT *device, PIRP irp) {
    IO_STACK_LOCATION *stack = IoGetCurrentIrpStackLocation(irp);
    if (device == g_control) {
        return ControlRequest(irp, stack);
    }
    return Forward(device, irp, kRelayControl, stack->Parameters.DeviceIoControl.IoControlCode,
                   irp->AssociatedIrp.SystemBuffer,
                   stack->Parameters.DeviceIoControl.InputBufferLength,
                   stack->Parameters.DeviceIoControl.OutputBufferLength);
}

static void NTAPI Unload(DRIVER_OBJECT *driver) {
    UNICODE_STRING link;
    ReleaseControl();
    RtlInitUnicodeString(&link, g_controlLink);
    IoDeleteSymbolicLink(&link);
    while (driver->DeviceObject != NULL) {
        IoDeleteDevice(driver->DeviceObject);
    }
}

NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT *driver, UNICODE_STRING *registryPath) {
    UNICODE_STRING name;
    UNICODE_STRING link;
    NTSTATUS status;
    (void)registryPath;
    g_driver = driver;
    KeInitializeSpinLock(&g_lock);
    KeInitializeEvent(&g_plugging, SynchronizationEvent, TRUE);
    InitializeListHead(&g_messages);
    InitializeListHead(&g_pending);
    InitializeListHead(&g_nexts);
    driver->MajorFunction[IRP_MJ_CREATE] = DispatchCreate;
    driver->MajorFunction[IRP_MJ_CLEANUP] = DispatchCleanup;
    driver->MajorFunction[IRP_MJ_CLOSE] = DispatchClose;
    driver->MajorFunction[IRP_MJ_READ] = DispatchRead;
    driver->MajorFunction[IRP_MJ_WRITE] = DispatchWrite;
    driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = DispatchControl;
    driver->DriverUnload = Unload;
    RtlInitUnicodeString(&name, g_controlName);
    status = IoCreateDevice(driver, sizeof(struct Extension), &name, FILE_DEVICE_UNKNOWN,
                            FILE_DEVICE_SECURE_OPEN, FALSE, &g_control);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    RtlZeroMemory(g_control->DeviceExtension, sizeof(struct Extension));
    ExtensionOf(g_control)->device = kRelayDevices;
    g_control->Flags |= DO_BUFFERED_IO;
    g_control->Flags &= ~(ULONG)DO_DEVICE_INITIALIZING;
    RtlInitUnicodeString(&link, g_controlLink);
    status = IoCreateSymbolicLink(&link, &name);
    if (!NT_SUCCESS(status)) {
        IoDeleteDevice(g_control);
    }
    return status;
}
