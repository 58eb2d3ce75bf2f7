/* Messages, pending requests, and the control device. */
#include "testdrivers/RelayQueue.h"

#define CONTROL_TYPE 0x8022u /* of the control device alone */

static DEVICE_OBJECT* g_control;
static const struct RelayHooks* g_hooks;

/* Guards the variables up to g_lastId, and the fields of items. */
static KSPIN_LOCK g_lock;
static LIST_ENTRY g_messages; /* items that wait for a TAGPORT_RELAY_NEXT */
static LIST_ENTRY g_pending;  /* IRPs of hosts that wait for their answer */
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

NTSTATUS CompleteAsItIs(PIRP irp) {
    return Complete(irp, irp->IoStatus.Status, irp->IoStatus.Information);
}

static PIRP IrpOf(PLIST_ENTRY entry) {
    return CONTAINING_RECORD(entry, IRP, Tail.Overlay.ListEntry);
}

/* NULL for the IRP of a TAGPORT_RELAY_NEXT. */
static struct Item* ItemOf(PIRP irp) {
    return (struct Item*)irp->Tail.Overlay.DriverContext[0];
}

/* Takes a request out of its list, so that the caller completes it. False when its cancel routine
 * does. Under the lock. */
static int Take(PIRP irp) {
    if (IoSetCancelRoutine(irp, NULL) == NULL) {
        return 0;
    }
    RemoveEntryList(&irp->Tail.Overlay.ListEntry);
    return 1;
}

void Deliver(void) {
    for (;;) {
        PIRP next = NULL;
        PLIST_ENTRY entry;
        KIRQL irql = EnterLock();
        for (entry = g_nexts.Flink; !IsListEmpty(&g_messages) && next == NULL && entry != &g_nexts;
             entry = entry->Flink) {
            next = Take(IrpOf(entry)) ? IrpOf(entry) : NULL;
        }
        if (next != NULL) {
            struct Item* item =
                CONTAINING_RECORD(RemoveHeadList(&g_messages), struct Item, inMessages);
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

/* Before a taken request ends without success: tells the process if it knows the request. Under the
 * lock. */
static void Failed(PIRP irp) {
    struct Item* item = ItemOf(irp);
    if (item == NULL) {
        return;
    }
    if (g_hooks->failed != NULL) {
        g_hooks->failed(irp);
    }
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

static void NTAPI CancelQueued(DEVICE_OBJECT* device, PIRP irp) {
    KIRQL irql;
    (void)device;
    IoReleaseCancelSpinLock(irp->CancelIrql);
    irql = EnterLock();
    RemoveEntryList(&irp->Tail.Overlay.ListEntry);
    Failed(irp);
    LeaveLock(irql);
    Complete(irp, STATUS_CANCELLED, 0);
    Deliver();
}

/* Makes a request pending. Under the lock of `irql`, which it leaves. */
static NTSTATUS Queue(LIST_ENTRY* list, PIRP irp, struct Item* item, KIRQL irql) {
    int cancelled;
    irp->Tail.Overlay.DriverContext[0] = item;
    IoMarkIrpPending(irp);
    InsertTailList(list, &irp->Tail.Overlay.ListEntry);
    IoSetCancelRoutine(irp, CancelQueued);
    cancelled = irp->Cancel && Take(irp); /* before it had a cancel routine */
    if (cancelled) {
        Failed(irp);
    }
    LeaveLock(irql);
    if (cancelled) {
        Complete(irp, STATUS_CANCELLED, 0);
    }
    Deliver();
    return STATUS_PENDING;
}

/* Those that are there now: a host may start the next one when one fails. */
static void FailQueued(LIST_ENTRY* list, FILE_OBJECT* file, DEVICE_OBJECT* device,
                       NTSTATUS status) {
    LIST_ENTRY taken;
    PLIST_ENTRY entry;
    KIRQL irql = EnterLock();
    InitializeListHead(&taken);
    for (entry = list->Flink; entry != list;) {
        PIRP irp = IrpOf(entry);
        IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
        entry = entry->Flink;
        if ((file == NULL || stack->FileObject == file) &&
            (device == NULL || stack->DeviceObject == device) && Take(irp)) {
            Failed(irp);
            InsertTailList(&taken, &irp->Tail.Overlay.ListEntry);
        }
    }
    LeaveLock(irql);
    while (!IsListEmpty(&taken)) {
        Complete(IrpOf(RemoveHeadList(&taken)), status, 0);
    }
}

void FailPending(FILE_OBJECT* file, DEVICE_OBJECT* device, NTSTATUS status) {
    FailQueued(&g_pending, file, device, status);
    Deliver();
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
    item->irp = irp;
    item->buffer = buffer;
    if (say) {
        Post(item);
    } else {
        InitializeListHead(&item->inMessages);
    }
    return Queue(&g_pending, irp, item, irql);
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
static NTSTATUS SetPresent(FILE_OBJECT* owner, const struct RelayPlug* plug) {
    NTSTATUS status = STATUS_ACCESS_DENIED; /* its handle may have been closed meanwhile */
    BeginPlugging();
    if (IsOwner(owner)) {
        status = g_hooks->setPresent(plug->device, plug->present);
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
    FailQueued(&g_nexts, NULL, NULL, STATUS_CANCELLED);
    irql = EnterLock();
    while (!IsListEmpty(&g_messages)) {
        struct Item* item = CONTAINING_RECORD(RemoveHeadList(&g_messages), struct Item, inMessages);
        if (item->irp == NULL) {
            ExFreePool(item);
        } else {
            item->delivered = 1; /* its cancel routine is about to end it */
        }
    }
    g_closing = 0;
    LeaveLock(irql);
}

static NTSTATUS WaitForMessage(PIRP irp) {
    KIRQL irql = EnterLock();
    if (IoGetCurrentIrpStackLocation(irp)->FileObject != g_owner) {
        LeaveLock(irql); /* its handle has been closed meanwhile */
        return Complete(irp, STATUS_ACCESS_DENIED, 0);
    }
    return Queue(&g_nexts, irp, NULL, irql);
}

/* Under the lock; NULL when there is none that the process knows. */
static PIRP TakeById(uint64_t id) {
    PLIST_ENTRY entry;
    for (entry = g_pending.Flink; entry != &g_pending; entry = entry->Flink) {
        const struct Item* item = ItemOf(IrpOf(entry));
        if (item->message.id == id) {
            return item->delivered && Take(IrpOf(entry)) ? IrpOf(entry) : NULL;
        }
    }
    return NULL;
}

static void Answer(const struct RelayAnswer* answer) {
    NTSTATUS status = (NTSTATUS)answer->status;
    ULONG_PTR count = answer->count;
    KIRQL irql = EnterLock();
    PIRP irp = TakeById(answer->id);
    if (irp != NULL) {
        struct Item* item = ItemOf(irp);
        if (status == STATUS_PENDING || status == STATUS_REPARSE) {
            status = STATUS_UNSUCCESSFUL; /* a request cannot end with these */
        }
        count = count < item->message.length ? count : item->message.length;
        if (item->message.kind == kRelayRead || item->message.kind == kRelayControl) {
            count = count < answer->dataSize ? count : answer->dataSize;
            RtlCopyMemory(item->buffer, answer->data, count);
        }
        if (!NT_SUCCESS(status) && g_hooks->failed != NULL) {
            g_hooks->failed(irp);
        }
        ExFreePool(item);
    }
    LeaveLock(irql);
    if (irp != NULL) {
        Complete(irp, status, count);
    }
}

static NTSTATUS ControlRequest(PIRP irp, const IO_STACK_LOCATION* stack) {
    const ULONG inSize = stack->Parameters.DeviceIoControl.InputBufferLength;
    const ULONG outSize = stack->Parameters.DeviceIoControl.OutputBufferLength;
    const void* const in = irp->AssociatedIrp.SystemBuffer;
    const struct RelayAnswer* const answer = (const struct RelayAnswer*)in;
    const struct RelayPlug* const plug = (const struct RelayPlug*)in;
    const struct RelayRules* const rules = (const struct RelayRules*)in;
    if (!IsOwner(stack->FileObject)) {
        return Complete(irp, STATUS_ACCESS_DENIED, 0);
    }
    switch (stack->Parameters.DeviceIoControl.IoControlCode) {
        case TAGPORT_RELAY_NEXT:
            return outSize < sizeof(struct RelayMessage) ? Complete(irp, STATUS_BUFFER_TOO_SMALL, 0)
                                                         : WaitForMessage(irp);
        case TAGPORT_RELAY_ANSWER:
            if (inSize < sizeof(*answer) || answer->dataSize > TAGPORT_RELAY_MOST_BYTES) {
                break;
            }
            Answer(answer);
            return Complete(irp, STATUS_SUCCESS, 0);
        case TAGPORT_RELAY_PLUG:
            if (inSize < sizeof(*plug) || plug->device >= kRelayDevices) {
                break;
            }
            return Complete(irp, SetPresent(stack->FileObject, plug), 0);
        case TAGPORT_RELAY_RULES:
            if (inSize < sizeof(*rules) || rules->device >= kRelayDevices ||
                g_hooks->setRules == NULL) {
                break;
            }
            g_hooks->setRules(rules);
            return Complete(irp, STATUS_SUCCESS, 0);
        default:
            return Complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
    }
    return Complete(irp, STATUS_INVALID_PARAMETER, 0);
}

int IsControl(const DEVICE_OBJECT* device) {
    return device->DeviceType == CONTROL_TYPE;
}

static NTSTATUS ControlCreate(FILE_OBJECT* file) {
    KIRQL irql = EnterLock();
    const int owned = g_owner != NULL || g_closing;
    if (!owned) {
        g_owner = file;
    }
    LeaveLock(irql);
    return owned ? STATUS_SHARING_VIOLATION : STATUS_SUCCESS;
}

NTSTATUS ControlDispatch(PIRP irp) {
    const IO_STACK_LOCATION* const stack = IoGetCurrentIrpStackLocation(irp);
    switch (stack->MajorFunction) {
        case IRP_MJ_CREATE:
            return Complete(irp, ControlCreate(stack->FileObject), 0);
        case IRP_MJ_CLEANUP:
        case IRP_MJ_CLOSE: /* some systems send no clean-up */
            if (IsOwner(stack->FileObject)) {
                ReleaseControl();
            }
            return Complete(irp, STATUS_SUCCESS, 0);
        case IRP_MJ_DEVICE_CONTROL:
            return ControlRequest(irp, stack);
        case IRP_MJ_POWER:
            PoStartNextPowerIrp(irp);
            return CompleteAsItIs(irp);
        default:
            return Complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
    }
}

NTSTATUS MakeRelay(DRIVER_OBJECT* driver, UNICODE_STRING* name, UNICODE_STRING* link,
                   const struct RelayHooks* hooks) {
    NTSTATUS status;
    g_hooks = hooks;
    KeInitializeSpinLock(&g_lock);
    KeInitializeEvent(&g_plugging, SynchronizationEvent, TRUE);
    InitializeListHead(&g_messages);
    InitializeListHead(&g_pending);
    InitializeListHead(&g_nexts);
    status =
        IoCreateDevice(driver, 0, name, CONTROL_TYPE, FILE_DEVICE_SECURE_OPEN, FALSE, &g_control);
    if (!NT_SUCCESS(status)) {
        return status;
    }
    g_control->Flags |= DO_BUFFERED_IO;
    g_control->Flags &= ~(ULONG)DO_DEVICE_INITIALIZING;
    status = IoCreateSymbolicLink(link, name);
    if (!NT_SUCCESS(status)) {
        IoDeleteDevice(g_control);
    }
    return status;
}

void ReleaseRelay(UNICODE_STRING* link) {
    ReleaseControl();
    IoDeleteSymbolicLink(link);
    IoDeleteDevice(g_control);
}
