/* The relay driver of the I2C and USB routes: a kernel-mode driver that passes every request of a
 * host to a process in user mode and completes it with that process's answer. See RelayProtocol.h
 * and RelayQueue.h, whose lock also guards the extensions here. */
#include "testdrivers/RelayQueue.h"

#define DEVICES 2u /* kRelayI2c and kRelayUsb */

/* Of every device object but the control device. They exist until the driver is unloaded; plugging
 * gives a device its name for hosts. */
struct Extension {
    uint32_t device;
    int present;
    FILE_OBJECT* file; /* that has the device open; of an earlier plugging none has */
    struct RelayRule rules[TAGPORT_RELAY_MOST_RULES];
};

static DEVICE_OBJECT* g_devices[DEVICES];

static UNICODE_STRING g_names[DEVICES] = {RTL_CONSTANT_STRING(L"\\Device\\TagportRelayI2c"),
                                          RTL_CONSTANT_STRING(L"\\Device\\TagportRelayUsb")};
static UNICODE_STRING g_links[DEVICES] = {
    RTL_CONSTANT_STRING(L"\\DosDevices\\Global\\SPBNFCDRIVER"),
    RTL_CONSTANT_STRING(L"\\DosDevices\\Global\\KEYBOARDNFC")};
static UNICODE_STRING g_controlName = RTL_CONSTANT_STRING(L"\\Device\\" TAGPORT_RELAY_SPB_CONTROL);
static UNICODE_STRING g_controlLink =
    RTL_CONSTANT_STRING(L"\\DosDevices\\Global\\" TAGPORT_RELAY_SPB_CONTROL);

static struct Extension* ExtensionOf(DEVICE_OBJECT* device) {
    return (struct Extension*)device->DeviceExtension;
}

/* An opening was refused or cancelled. */
static void RequestFailed(PIRP irp) {
    IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
    struct Extension* extension = ExtensionOf(stack->DeviceObject);
    if (stack->MajorFunction == IRP_MJ_CREATE && extension->file == stack->FileObject) {
        extension->file = NULL;
    }
}

static void SetRules(const struct RelayRules* rules) {
    if (rules->device < DEVICES) {
        KIRQL irql = EnterLock();
        RtlCopyMemory(ExtensionOf(g_devices[rules->device])->rules, rules->rules,
                      sizeof(rules->rules));
        LeaveLock(irql);
    }
}

/* Whether the request ends at once, and how. Counts it. Under the lock. */
static int EndsAtOnce(struct Extension* extension, const struct RelayMessage* message,
                      NTSTATUS* status) {
    size_t at;
    for (at = 0; at < TAGPORT_RELAY_MOST_RULES; ++at) {
        struct RelayRule* const rule = &extension->rules[at];
        if (rule->kind != message->kind || rule->controlCode != message->controlCode ||
            (rule->length != 0 && rule->length != message->length)) {
            continue;
        }
        if (rule->before != 0) {
            --rule->before;
        } else if (rule->count != 0) {
            --rule->count;
            *status = (NTSTATUS)rule->status;
            return 1;
        }
    }
    return 0;
}

/* What a request is refused with. Under the lock. */
static NTSTATUS Admit(struct Extension* extension, FILE_OBJECT* file, uint32_t kind) {
    if (!HasOwner() || !extension->present) {
        return STATUS_DEVICE_NOT_CONNECTED;
    }
    if (kind == kRelayOpen) {
        if (extension->file != NULL) {
            return STATUS_SHARING_VIOLATION;
        }
        extension->file = file;
    }
    return extension->file == file ? STATUS_SUCCESS : STATUS_DEVICE_NOT_CONNECTED;
}

/* Makes a request pending and passes it on, or ends it at once. */
static NTSTATUS Forward(DEVICE_OBJECT* device, PIRP irp, uint32_t kind, uint32_t controlCode,
                        const void* data, uint32_t dataSize, uint32_t length) {
    struct Extension* extension = ExtensionOf(device);
    struct Item* item;
    NTSTATUS status;
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
    status = Admit(extension, IoGetCurrentIrpStackLocation(irp)->FileObject, kind);
    if (status != STATUS_SUCCESS) {
        LeaveLock(irql);
        ExFreePool(item);
        return Complete(irp, status, 0);
    }
    if (!EndsAtOnce(extension, &item->message, &status)) {
        return Pend(item, irp, irp->AssociatedIrp.SystemBuffer, 1, irql);
    }
    Post(item);
    LeaveLock(irql);
    Complete(irp, status, NT_SUCCESS(status) && kind == kRelayWrite ? length : 0);
    Deliver();
    return status;
}

/* As after a start of the driver, but for `present`. */
static void Reset(struct Extension* extension, int present) {
    KIRQL irql = EnterLock();
    extension->present = present;
    extension->file = NULL;
    RtlZeroMemory(extension->rules, sizeof(extension->rules));
    LeaveLock(irql);
}

static NTSTATUS SetPresent(uint32_t which, uint32_t present) {
    struct Extension* extension;
    NTSTATUS status = STATUS_SUCCESS;
    if (which >= DEVICES) {
        return present ? STATUS_INVALID_PARAMETER : STATUS_SUCCESS;
    }
    extension = ExtensionOf(g_devices[which]);
    if (extension->present == (present != 0)) {
        return STATUS_SUCCESS;
    }
    Reset(extension, present != 0);
    if (present) {
        status = IoCreateSymbolicLink(&g_links[which], &g_names[which]);
        if (!NT_SUCCESS(status)) {
            Reset(extension, 0); /* another driver has the name, and must keep it */
        }
    } else {
        IoDeleteSymbolicLink(&g_links[which]);
        FailPending(NULL, g_devices[which], STATUS_DEVICE_NOT_CONNECTED);
    }
    return status;
}

/* The last handle of a file is closed. Some systems say so twice, some only the second time. */
static void CloseFile(DEVICE_OBJECT* device, FILE_OBJECT* file) {
    struct Extension* extension = ExtensionOf(device);
    KIRQL irql;
    FailPending(file, device, STATUS_CANCELLED);
    irql = EnterLock();
    if (extension->file == file) {
        struct Item* item = NewItem(kRelayClose, extension->device, NULL, 0, 0);
        extension->file = NULL;
        if (item != NULL) {
            Post(item);
        }
    }
    LeaveLock(irql);
    FailPending(file, device, STATUS_CANCELLED); /* what came meanwhile; no more is admitted */
}

static NTSTATUS NTAPI Dispatch(DEVICE_OBJECT* device, PIRP irp) {
    const IO_STACK_LOCATION* const stack = IoGetCurrentIrpStackLocation(irp);
    const void* const in = irp->AssociatedIrp.SystemBuffer;
    if (IsControl(device)) {
        return ControlDispatch(irp);
    }
    switch (stack->MajorFunction) {
        case IRP_MJ_CREATE:
            return Forward(device, irp, kRelayOpen, 0, NULL, 0, 0);
        case IRP_MJ_CLEANUP:
        case IRP_MJ_CLOSE:
            CloseFile(device, stack->FileObject);
            return Complete(irp, STATUS_SUCCESS, 0);
        case IRP_MJ_READ:
            return Forward(device, irp, kRelayRead, 0, NULL, 0, stack->Parameters.Read.Length);
        case IRP_MJ_WRITE:
            return Forward(device, irp, kRelayWrite, 0, in, stack->Parameters.Write.Length,
                           stack->Parameters.Write.Length);
        default: { /* IRP_MJ_DEVICE_CONTROL */
            const ULONG code = stack->Parameters.DeviceIoControl.IoControlCode;
            if ((code & 3) != METHOD_BUFFERED) { /* the others give no buffer for both ways */
                return Complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
            }
            return Forward(device, irp, kRelayControl, code, in,
                           stack->Parameters.DeviceIoControl.InputBufferLength,
                           stack->Parameters.DeviceIoControl.OutputBufferLength);
        }
    }
}

static void DeleteDevices(DRIVER_OBJECT* driver) {
    while (driver->DeviceObject != NULL) {
        IoDeleteDevice(driver->DeviceObject);
    }
}

static void NTAPI Unload(DRIVER_OBJECT* driver) {
    ReleaseRelay(&g_controlLink);
    DeleteDevices(driver);
}

NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT* driver, UNICODE_STRING* registryPath) {
    static const struct RelayHooks hooks = {SetPresent, RequestFailed, SetRules};
    NTSTATUS status = STATUS_SUCCESS;
    uint32_t which;
    (void)registryPath;
    for (which = 0; which < DEVICES && NT_SUCCESS(status); ++which) {
        status =
            IoCreateDevice(driver, sizeof(struct Extension), &g_names[which], FILE_DEVICE_UNKNOWN,
                           FILE_DEVICE_SECURE_OPEN, FALSE, &g_devices[which]);
        if (NT_SUCCESS(status)) {
            RtlZeroMemory(ExtensionOf(g_devices[which]), sizeof(struct Extension));
            ExtensionOf(g_devices[which])->device = which;
            g_devices[which]->Flags |= DO_BUFFERED_IO;
            g_devices[which]->Flags &= ~(ULONG)DO_DEVICE_INITIALIZING;
        }
    }
    if (NT_SUCCESS(status)) {
        status = MakeRelay(driver, &g_controlName, &g_controlLink, &hooks);
    }
    if (!NT_SUCCESS(status)) {
        DeleteDevices(driver);
        return status;
    }
    driver->MajorFunction[IRP_MJ_CREATE] = Dispatch;
    driver->MajorFunction[IRP_MJ_CLEANUP] = Dispatch;
    driver->MajorFunction[IRP_MJ_CLOSE] = Dispatch;
    driver->MajorFunction[IRP_MJ_READ] = Dispatch;
    driver->MajorFunction[IRP_MJ_WRITE] = Dispatch;
    driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = Dispatch;
    driver->DriverUnload = Unload;
    return status;
}
