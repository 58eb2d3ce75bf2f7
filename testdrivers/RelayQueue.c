/* Messages, pending requests, and the control device. */
#include "testdrivers/RelayQueue.h"

static DEVICE_OBJECT* g_control;
static const struct RelayHooks* g_hooks;

/* Guards the variables up to g_lastId, and the fields of items. */
static KSPIN_LOCK g_lock;
static LIST_ENTRY g_messages; /* items that wait for a TAGPORT_RELAY_NEXT */
static LIST_ENTRY g_pending;  /* items of requests that wait for their answer */
static LIST_ENTRY g_nexts;    /* IRPs of TAGPORT_RELAY_NEXT */
static FILE_OBJECT* g_owner;  /* the device process's handle */
static int g_closing;         /* its handle is closed; nobody may own the device before the end */
static uint64_t g_lastId;

static KEVENT g_plugging; /* taken while a device comes or goes */

KIRQL EnterLock(void) {
    KIRQL irql;
    KeAcquireSpinLock(&g_lock, &irql);
    return irql;
}

void LeaveLock(KIRQL irql) {
    KeReleaseSpinLock(&g_lock, irql);
}

int HasOwner(void) {
    return g_owner != NULL;
}

NTSTATUS Complete(PIRP irp, NTSTATUS status, ULONG_PTR information) {
    irp->IoStatus.Status = status;
    irp->IoStatus.Information = information;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
}

void Deliver(void) {
    for (;;) {
        struct Item* item = NULL;
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
static void Retire(struct Item* item) {
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
static int Take(struct Item* item) {
    if (IoSetCancelRoutine(item->irp, NULL) == NULL) {
        return 0;
    }
    RemoveEntryList(&item->inPending);
    return 1;
}

/* Before a taken request ends without success. Under the lock; End follows when it is left. */
static void Failed(PIRP irp) {
    irp->Tail.Overlay.DriverContext[0] = g_hooks->failed != NULL ? g_hooks->failed(irp) : NULL;
}

/* Ends a request that is marked by Failed, and deletes the device that it was the last to use. */
static void End(PIRP irp, NTSTATUS status, ULONG_PTR information) {
    DEVICE_OBJECT* unused = (DEVICE_OBJECT*)irp->Tail.Overlay.DriverContext[0];
    Complete(irp, status, information);
    if (unused != NULL) {
        IoDeleteDevice(unused);
    }
}

static void NTAPI CancelHostRequest(DEVICE_OBJECT* device, PIRP irp) {
    struct Item* item = (struct Item*)irp->Tail.Overlay.DriverContext[0];
    KIRQL irql;
    (void)device;
    IoReleaseCancelSpinLock(irp->CancelIrql);
    irql = EnterLock();
    RemoveEntryList(&item->inPending);
    Retire(item);
    Failed(irp);
    LeaveLock(irql);
    /* Not End: this may run at DISPATCH_LEVEL, where no device may be deleted. An unplugged one
     * that this was the last to use stays until the driver is unloaded. */
    Complete(irp, STATUS_CANCELLED, 0);
    Deliver();
}

static void NTAPI CancelNext(DEVICE_OBJECT* device, PIRP irp) {
    KIRQL irql;
    (void)device;
    IoReleaseCancelSpinLock(irp->CancelIrql);
    irql = EnterLock();
    RemoveEntryList(&irp->Tail.Overlay.ListEntry);
    LeaveLock(irql);
    Complete(irp, STATUS_CANCELLED, 0);
}

void FailPending(FILE_OBJECT* file, DEVICE_OBJECT* device, NTSTATUS status) {
    LIST_ENTRY taken;
    PLIST_ENTRY entry;
    KIRQL irql = EnterLock();
    InitializeListHead(&taken);
    for (entry = g_pending.Flink; entry != &g_pending;) {
        struct Item* item = CONTAINING_RECORD(entry, struct Item, inPending);
        PIRP irp = item->irp;
        IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
        entry = entry->Flink;
        if ((file == NULL || stack->FileObject == file) &&
            (device == NULL || stack->DeviceObject == device) && Take(item)) {
            Retire(item);
            Failed(irp);
            InsertTailList(&taken, &irp->Tail.Overlay.ListEntry);
        }
    }
    LeaveLock(irql);
    while (!IsListEmpty(&taken)) {
        entry = RemoveHeadList(&taken);
        End(CONTAINING_RECORD(entry, IRP, Tail.Overlay.ListEntry), status, 0);
    }
}

struct Item* NewItem(uint32_t kind, uint32_t device, const void* data, uint32_t dataSize,
                     uint32_t length) {
    struct Item* item = ExAllocatePoolWithTag(NonPagedPoolNx, sizeof(*item), POOL_TAG);
    if (item != NULL) {
        RtlZeroMemory(item, sizeof(*item));
        item->message.kind = kind;
        item->message.device = device;
        item->message.thread = (uint32_t)(ULONG_PTR)PsGetCurrentThreadId();
        item->message.length = length;
        item->message.dataSize = dataSize;
        if (dataSize != 0) {
            RtlCopyMemory(item->message.data, data, dataSize);
        }
    }
    return item;
}

void Post(struct Item* item) {
    item->message.id = ++g_lastId;
    InsertTailList(&g_messages, &item->inMessages);
}

NTSTATUS Pend(struct Item* item, PIRP irp, void* buffer, int say, KIRQL irql) {
    int cancelled = 0;
    item->irp = irp;
    item->buffer = buffer;
    irp->Tail.Overlay.DriverContext[0] = item;
    if (say) {
        Post(item);
    } else {
        InitializeListHead(&item->inMessages);
    }
    InsertTailList(&g_pending, &item->inPending);
    IoMarkIrpPending(irp);
    IoSetCancelRoutine(irp, CancelHostRequest);
    if (irp->Cancel && Take(item)) { /* cancelled before it had a cancel routine */
        cancelled = 1;
        Retire(item);
        Failed(irp);
    }
    LeaveLock(irql);
    if (cancelled) {
        End(irp, STATUS_CANCELLED, 0);
    } else {
        Deliver();
    }
    return STATUS_PENDING;
}

/* Whether the file is the device process's handle, now. */
static int IsOwner(const FILE_OBJECT* file) {
    KIRQL irql = EnterLock();
    const int owns = g_owner == file;
    LeaveLock(irql);
    return owns;
}

/* One thread at a time may make devices come or go. It must not be suspended meanwhile. */
static void BeginPlugging(void) {
    KeEnterCriticalRegion();
    KeWaitForSingleObject(&g_plugging, Executive, KernelMode, FALSE, NULL);
}

static void EndPlugging(void) {
    KeSetEvent(&g_plugging, IO_NO_INCREMENT, FALSE);
    KeLeaveCriticalRegion();
}

/* The device process, by its handle `owner`, wants a device to be there or not. */
static NTSTATUS SetPresent(FILE_OBJECT* owner, uint32_t which, uint32_t present) {
    NTSTATUS status = STATUS_SUCCESS;
    BeginPlugging();
    if (!IsOwner(owner)) {
        status = STATUS_ACCESS_DENIED; /* its handle has been closed meanwhile */
    } else {
        status = g_hooks->setPresent(which, present);
    }
    EndPlugging();
    return status;
}

/* The device process has gone. */
static void ReleaseControl(void) {
    uint32_t which;
    KIRQL irql = EnterLock();
    g_owner = NULL;
    g_closing = 1;
    LeaveLock(irql);
    BeginPlugging();
    for (which = 0; which < kRelayDevices; ++which) {
        g_hooks->setPresent(which, 0);
    }
    EndPlugging();
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
        struct Item* item = CONTAINING_RECORD(RemoveHeadList(&g_messages), struct Item, inMessages);
        if (item->irp == NULL) {
            ExFreePool(item);
        } else {
            item->delivered = 1; /* its cancel routine is about to retire it */
        }
    }
    g_closing = 0;
    LeaveLock(irql);
}

static NTSTATUS WaitForMessage(PIRP irp) {
    int cancelled = 0;
    KIRQL irql = EnterLock();
    if (IoGetCurrentIrpStackLocation(irp)->FileObject != g_owner) {
        LeaveLock(irql); /* its handle has been closed meanwhile */
        return Complete(irp, STATUS_ACCESS_DENIED, 0);
    }
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

static void Answer(const struct RelayAnswer* answer) {
    PIRP irp = NULL;
    PLIST_ENTRY entry;
    NTSTATUS status = (NTSTATUS)answer->status;
    ULONG_PTR count = answer->count;
    KIRQL irql = EnterLock();
    if (status == STATUS_PENDING || status == STATUS_REPARSE) {
        status = STATUS_UNSUCCESSFUL; /* a request cannot end with these */
    }
    for (entry = g_pending.Flink; entry != &g_pending; entry = entry->Flink) {
        struct Item* item = CONTAINING_RECORD(entry, struct Item, inPending);
        if (item->message.id != answer->id) {
            continue;
        }
        if (item->delivered && Take(item)) {
            const ULONG_PTR most = item->message.length;
            irp = item->irp;
            count = count < most ? count : most;
            if (item->message.kind == kRelayRead || item->message.kind == kRelayControl) {
                count = count < answer->dataSize ? count : answer->dataSize;
                RtlCopyMemory(item->buffer, answer->data, count);
            }
            irp->Tail.Overlay.DriverContext[0] = NULL;
            if (!NT_SUCCESS(status)) {
                Failed(irp);
            }
            ExFreePool(item);
        }
        break;
    }
    LeaveLock(irql);
    if (irp != NULL) {
        End(irp, status, count);
    }
}

NTSTATUS ControlRequest(PIRP irp) {
    IO_STACK_LOCATION* const stack = IoGetCurrentIrpStackLocation(irp);
    const ULONG inSize = stack->Parameters.DeviceIoControl.InputBufferLength;
    const ULONG outSize = stack->Parameters.DeviceIoControl.OutputBufferLength;
    const void* const in = irp->AssociatedIrp.SystemBuffer;
    if (!IsOwner(stack->FileObject)) {
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
                ((const struct RelayAnswer*)in)->dataSize > TAGPORT_RELAY_MOST_BYTES) {
                return Complete(irp, STATUS_INVALID_PARAMETER, 0);
            }
            Answer((const struct RelayAnswer*)in);
            return Complete(irp, STATUS_SUCCESS, 0);
        case TAGPORT_RELAY_PLUG: {
            const struct RelayPlug* plug = (const struct RelayPlug*)in;
            if (inSize < sizeof(*plug) || plug->device >= kRelayDevices) {
                return Complete(irp, STATUS_INVALID_PARAMETER, 0);
            }
            return Complete(irp, SetPresent(stack->FileObject, plug->device, plug->present), 0);
        }
        default:
            return Complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
    }
}

int IsControl(const DEVICE_OBJECT* device) {
    return device == g_control;
}

NTSTATUS ControlCreate(PIRP irp) {
    FILE_OBJECT* file = IoGetCurrentIrpStackLocation(irp)->FileObject;
    KIRQL irql = EnterLock();
    const int owned = g_owner != NULL || g_closing;
    if (!owned) {
        g_owner = file;
    }
    LeaveLock(irql);
    return Complete(irp, owned ? STATUS_SHARING_VIOLATION : STATUS_SUCCESS, 0);
}

NTSTATUS ControlCleanup(PIRP irp) {
    if (IsOwner(IoGetCurrentIrpStackLocation(irp)->FileObject)) {
        ReleaseControl();
    }
    return Complete(irp, STATUS_SUCCESS, 0);
}

NTSTATUS ControlClose(PIRP irp) {
    return ControlCleanup(irp); /* some systems send no clean-up */
}

NTSTATUS MakeRelay(DRIVER_OBJECT* driver, const WCHAR* name, const WCHAR* link,
                   const struct RelayHooks* hooks) {
    UNICODE_STRING nameString;
    UNICODE_STRING linkString;
    NTSTATUS status;
    g_hooks = hooks;
    KeInitializeSpinLock(&g_lock);
    KeInitializeEvent(&g_plugging, SynchronizationEvent, TRUE);
    InitializeListHead(&g_messages);
    InitializeListHead(&g_pending);
    InitializeListHead(&g_nexts);
    RtlInitUnicodeString(&nameString, name);
    status = IoCreateDevice(driver, 0, &nameString, FILE_DEVICE_UNKNOWN, FILE_DEVICE_SECURE_OPEN,
                            FALSE, &g_control);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    g_control->Flags |= DO_BUFFERED_IO;
    g_control->Flags &= ~(ULONG)DO_DEVICE_INITIALIZING;
    RtlInitUnicodeString(&linkString, link);
    status = IoCreateSymbolicLink(&linkString, &nameString);
    if (!NT_SUCCESS(status)) {
        IoDeleteDevice(g_control);
    }
    return status;
}

void ReleaseRelay(const WCHAR* link) {
    UNICODE_STRING linkString;
    ReleaseControl();
    RtlInitUnicodeString(&linkString, link);
    IoDeleteSymbolicLink(&linkString);
    IoDeleteDevice(g_control);
}
