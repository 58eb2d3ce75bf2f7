/* The devices that the HID bus can have, and their answers to the class driver. */
#ifndef TAGPORT_HID_REQUESTS_H
#define TAGPORT_HID_REQUESTS_H

#include "testdrivers/RelayQueue.h"

struct Kind {
    const WCHAR* id; /* after the enumerator */
    USHORT vendor;
    USHORT product;
    const UCHAR* reports;
    USHORT reportsSize;
};

#define KINDS 5u
#define KEYBOARD_KIND 3u
extern const struct Kind g_kinds[KINDS];
extern const struct Kind g_longKeyboard; /* in place of the keyboard, with longer reports */

/* Of every device object but the control device. */
struct Extension {
    const struct Kind* kind; /* NULL for the bus itself */
    DEVICE_OBJECT* lower;    /* of the bus */
    int shown;               /* of a child: the system knows it */
    int gone;                /* of a child: unplugged; deleted when the system removes it */
    int removed;             /* the system has been there; every request fails */
    int relayed;             /* its reports go to the device process */
};

static inline struct Extension* ExtensionOf(DEVICE_OBJECT* device) {
    return (struct Extension*)device->DeviceExtension;
}

/* The class driver's request to a child. */
NTSTATUS InternalRequest(DEVICE_OBJECT* device, PIRP irp);

#endif
