/* The devices of the bus as the HID class driver sees them: what each is, and its reports. Those of
 * the keyboard go to the device process. Kernel mode. */
#include "testdrivers/hid/HidRequests.h"
#include "testdrivers/hid/HidNames.h"
#include "testdrivers/hid/HidPort.h"

#define VENDOR_TAG 0x7A3E
#define PRODUCT_TAG 0x10B8
#define VERSION 0x0100

/* One collection with one input and one output report of `bytes` bytes after the id. */
#define REPORTS(pageHigh, pageLow, usage, id, bytes)                      \
    0x06, pageLow, pageHigh,          /* usage page */                    \
        0x09, usage, 0xA1, 0x01,      /* usage, application collection */ \
        0x85, id,                     /* report id */                     \
        0x15, 0x00, 0x26, 0xFF, 0x00, /* values from 0 to 255 */          \
        0x75, 0x08, 0x95, bytes,      /* fields of 8 bits */              \
        0x09, 0x01, 0x81, 0x02,       /* input */                         \
        0x09, 0x02, 0x91, 0x02, 0xC0  /* output, end */

static const UCHAR g_tagReports[] = {REPORTS(0x46, 0x4E, 0x43, 5, 63)};
static const UCHAR g_longReports[] = {REPORTS(0x46, 0x4E, 0x43, 5, 95)};
static const UCHAR g_mouseReports[] = {REPORTS(0x00, 0x01, 0x02, 1, 7)};
static const UCHAR g_keyReports[] = {REPORTS(0x00, 0x01, 0x06, 1, 7)};
static const UCHAR g_vendorReports[] = {REPORTS(0xFF, 0x00, 0x01, 6, 63)};

#define KIND(id, vendor, product, reports) \
    { id, vendor, product, reports, sizeof(reports) }
const struct Kind g_kinds[KINDS] = {
    KIND(TAGPORT_HID_MOUSE, 0x1209, 0x0001, g_mouseReports),
    KIND(TAGPORT_HID_KEYS, VENDOR_TAG, PRODUCT_TAG, g_keyReports),
    KIND(TAGPORT_HID_OTHER, VENDOR_TAG, 0x10B9, g_tagReports),
    KIND(TAGPORT_HID_KEYBOARD, VENDOR_TAG, PRODUCT_TAG, g_tagReports),
    KIND(TAGPORT_HID_LAST, VENDOR_TAG, PRODUCT_TAG, g_vendorReports)};
const struct Kind g_longKeyboard =
    KIND(TAGPORT_HID_KEYBOARD, VENDOR_TAG, PRODUCT_TAG, g_longReports);

static NTSTATUS GiveBytes(PIRP irp, const void* bytes, ULONG size, ULONG room) {
    if (room < size || irp->UserBuffer == NULL) {
        return Complete(irp, STATUS_BUFFER_TOO_SMALL, 0);
    }
    RtlCopyMemory(irp->UserBuffer, bytes, size);
    return Complete(irp, STATUS_SUCCESS, size);
}

static NTSTATUS GiveDescriptor(PIRP irp, const struct Kind* kind, ULONG room) {
    const HID_DESCRIPTOR descriptor = {
        .bLength = sizeof(descriptor),
        .bDescriptorType = HID_HID_DESCRIPTOR_TYPE,
        .bcdHID = VERSION,
        .bNumDescriptors = 1,
        .DescriptorList = {{HID_REPORT_DESCRIPTOR_TYPE, kind->reportsSize}}};
    return GiveBytes(irp, &descriptor, sizeof(descriptor), room);
}

static NTSTATUS GiveAttributes(PIRP irp, const struct Kind* kind, ULONG room) {
    const HID_DEVICE_ATTRIBUTES attributes = {.Size = sizeof(attributes),
                                              .VendorID = kind->vendor,
                                              .ProductID = kind->product,
                                              .VersionNumber = VERSION};
    return GiveBytes(irp, &attributes, sizeof(attributes), room);
}

/* A read pends until the device process has a report, a write until it has taken it, so a write
 * fails as the process says. A decoy takes every write. A read of a decoy or of an unplugged
 * keyboard never ends by itself: a class driver that sees a read fail may start the next one at
 * once, for as long as it knows the device. */
static NTSTATUS Transfer(DEVICE_OBJECT* device, PIRP irp, uint32_t kind, void* bytes, ULONG size) {
    struct Extension* extension = ExtensionOf(device);
    const int writes = kind == kRelayWrite;
    struct Item* item;
    int gone;
    KIRQL irql;
    if (bytes == NULL || size > TAGPORT_RELAY_MOST_BYTES) {
        return Complete(irp, STATUS_INVALID_PARAMETER, 0);
    }
    item = NewItem(kind, kRelayHid, bytes, writes ? size : 0, size);
    if (item == NULL) {
        return Complete(irp, STATUS_INSUFFICIENT_RESOURCES, 0);
    }
    irql = EnterLock();
    gone = extension->removed || (writes && extension->gone);
    if (!gone && (!writes || extension->relayed)) {
        return Pend(item, irp, bytes, extension->relayed && !extension->gone, irql);
    }
    LeaveLock(irql);
    ExFreePool(item);
    return gone ? Complete(irp, STATUS_DEVICE_NOT_CONNECTED, 0)
                : Complete(irp, STATUS_SUCCESS, size);
}

NTSTATUS InternalRequest(DEVICE_OBJECT* device, PIRP irp) {
    IO_STACK_LOCATION* const stack = IoGetCurrentIrpStackLocation(irp);
    const ULONG room = stack->Parameters.DeviceIoControl.OutputBufferLength;
    const struct Kind* const kind = ExtensionOf(device)->kind;
    const HID_XFER_PACKET* const packet = (const HID_XFER_PACKET*)irp->UserBuffer; /* of a write */
    if (kind == NULL) {
        return Complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
    }
    switch (stack->Parameters.DeviceIoControl.IoControlCode) {
        case IOCTL_HID_GET_DEVICE_DESCRIPTOR:
            return GiveDescriptor(irp, kind, room);
        case IOCTL_HID_GET_REPORT_DESCRIPTOR:
            return GiveBytes(irp, kind->reports, kind->reportsSize, room);
        case IOCTL_HID_GET_DEVICE_ATTRIBUTES:
            return GiveAttributes(irp, kind, room);
        case IOCTL_HID_ACTIVATE_DEVICE:
        case IOCTL_HID_DEACTIVATE_DEVICE:
            return Complete(irp, STATUS_SUCCESS, 0);
        case IOCTL_HID_READ_REPORT:
            return Transfer(device, irp, kRelayRead, irp->UserBuffer, room);
        case IOCTL_HID_WRITE_REPORT:
            return packet == NULL ? Complete(irp, STATUS_INVALID_PARAMETER, 0)
                                  : Transfer(device, irp, kRelayWrite, packet->reportBuffer,
                                             packet->reportBufferLen);
        default:
            return Complete(irp, STATUS_NOT_SUPPORTED, 0);
    }
}
