/* What the test drivers and the process that holds the simulated devices say to each other. Plain
 * C: the drivers are C, the process is C++.
 *
 * A test driver has two sides. Hosts open its device (kRelayI2c: "\\.\SPBNFCDRIVER", kRelayUsb:
 * "\\.\KEYBOARDNFC", kRelayHid: the keyboard among the HID devices). The device process opens the
 * control device, keeps TAGPORT_RELAY_NEXT requests pending, and answers what they bring. When the
 * control device is closed, the drivers fail all that is pending and remove their devices. */
#ifndef TAGPORT_RELAY_PROTOCOL_H
#define TAGPORT_RELAY_PROTOCOL_H

#include <stdint.h>

#define TAGPORT_RELAY_SPB_CONTROL L"TAGPORTSPBRELAY" /* of the driver for I2C and USB */
#define TAGPORT_RELAY_HID_CONTROL L"TAGPORTHIDRELAY" /* of the HID minidriver */

/* Control codes: device type 0x22 (unknown), any access, buffered. */
#define TAGPORT_RELAY_NEXT 0x00222400u   /* out: RelayMessage; pending until there is one */
#define TAGPORT_RELAY_ANSWER 0x00222404u /* in: RelayAnswer */
#define TAGPORT_RELAY_PLUG 0x00222408u   /* in: RelayPlug */
#define TAGPORT_RELAY_RULES 0x0022240Cu  /* in: RelayRules */

#define TAGPORT_RELAY_MOST_BYTES 1024u /* of one request; a longer one is refused by the driver */

enum RelayDevice { kRelayI2c = 0, kRelayUsb = 1, kRelayHid = 2, kRelayDevices = 3 };

enum RelayKind {
    kRelayOpen = 1,    /* a host opens the device; answered with a status */
    kRelayClose = 2,   /* the last handle is closed; no answer */
    kRelayRead = 3,    /* length: bytes wanted */
    kRelayWrite = 4,   /* data: the bytes */
    kRelayControl = 5, /* data: the input, length: bytes wanted */
    kRelayCancel = 6   /* the request of this id has been completed by the driver; no answer */
};

/* Sizes are bytes. The fields are aligned by their sizes, so there is no padding. */
struct RelayMessage {
    uint64_t id; /* of the request, never 0, never used twice while the driver is loaded */
    uint32_t kind;
    uint32_t device;
    uint32_t controlCode;
    uint32_t thread; /* of the host that started the request */
    uint32_t length;
    uint32_t dataSize;
    uint8_t data[TAGPORT_RELAY_MOST_BYTES];
};

/* An id that is not pending (any more) is ignored: the request was cancelled meanwhile. */
struct RelayAnswer {
    uint64_t id;
    uint32_t status; /* NTSTATUS; 0 is success */
    uint32_t count;  /* bytes that the host is to see as moved */
    uint32_t dataSize;
    uint32_t unused;
    uint8_t data[TAGPORT_RELAY_MOST_BYTES];
};

struct RelayPlug {
    uint32_t device;
    uint32_t present; /* 0: every pending request fails, and the device is gone */
};

/* Requests that a driver ends at once, in the host's call, where every other one becomes pending
 * first. The process gets them all the same, and its answer is ignored. Not for the keyboard. */
struct RelayRule {
    uint32_t kind; /* kRelayRead, kRelayWrite or kRelayControl; 0 for no rule */
    uint32_t controlCode;
    uint32_t length; /* of the request; 0 for any */
    uint32_t before; /* so many such requests become pending first */
    uint32_t count;  /* and so many then end at once */
    uint32_t status; /* NTSTATUS; with 0 a write has moved all its bytes, and nothing else any */
};

#define TAGPORT_RELAY_MOST_RULES 4u

struct RelayRules {
    uint32_t device;
    struct RelayRule rules[TAGPORT_RELAY_MOST_RULES]; /* in place of those so far */
};

/* RelayPlug.present for a keyboard whose reports are longer than those of a host. */
#define TAGPORT_RELAY_LONG_REPORTS 2u

#endif
