/* What the test drivers share: the control device of the device process, the messages to it, and
 * the requests of hosts that wait for its answers. Kernel mode. See RelayProtocol.h.
 *
 * One spin lock guards every list. A request is completed by whoever has taken it: the one whose
 * IoSetCancelRoutine(irp, NULL) gave the routine back, or else the cancel routine. The lock is
 * never held over IoCompleteRequest. */
#ifndef TAGPORT_RELAY_QUEUE_H
#define TAGPORT_RELAY_QUEUE_H

#include <ntifs.h>

#include "testdrivers/RelayProtocol.h"

#define POOL_TAG 0x4E546167u /* "gaTN" */

/* A message for the device process. That of a host's request lives as long as the request. */
struct Item {
    LIST_ENTRY inMessages; /* until the message is delivered */
    PIRP irp;              /* the request; NULL for a message that gets no answer */
    void* buffer;          /* of the request, for the bytes of its answer */
    int delivered;
    struct RelayMessage message;
};

/* What differs between the drivers. */
struct RelayHooks {
    /* Makes a device present or not (a RelayPlug's value). At PASSIVE_LEVEL, one call at a time. */
    NTSTATUS (*setPresent)(uint32_t device, uint32_t present);
    /* A host's request ends without success. Under the lock. May be NULL. */
    void (*failed)(PIRP irp);
    /* Which requests end at once. May be NULL. */
    void (*setRules)(const struct RelayRules* rules);
};

/* Makes the control device. `hooks` stays in use until ReleaseRelay. */
NTSTATUS MakeRelay(DRIVER_OBJECT* driver, UNICODE_STRING* name, UNICODE_STRING* link,
                   const struct RelayHooks* hooks);
/* Ends what is pending and deletes the control device. */
void ReleaseRelay(UNICODE_STRING* link);

/* The requests of the control device. */
int IsControl(const DEVICE_OBJECT* device);
NTSTATUS ControlDispatch(PIRP irp);

KIRQL EnterLock(void);
void LeaveLock(KIRQL irql);
/* Whether a device process is there. Under the lock. */
int HasOwner(void);

NTSTATUS Complete(PIRP irp, NTSTATUS status, ULONG_PTR information);
/* With the status that the request has so far: nobody here knows it. */
NTSTATUS CompleteAsItIs(PIRP irp);

/* NULL without memory. The sizes must not be above TAGPORT_RELAY_MOST_BYTES. */
struct Item* NewItem(uint32_t kind, uint32_t device, const void* data, uint32_t dataSize,
                     uint32_t length);
/* Queues a message that gets no answer. Under the lock; Deliver follows when it is left. */
void Post(struct Item* item);
/* Makes a request pending and passes it on; without `say` it waits for its cancellation alone.
 * Under the lock of `irql`, which it leaves. Gives STATUS_PENDING. */
NTSTATUS Pend(struct Item* item, PIRP irp, void* buffer, int say, KIRQL irql);
/* Passes messages on for as long as there are a message and an IRP that waits for one. Called
 * without the lock. */
void Deliver(void);
/* Fails the pending requests of a file, of a device, or all for two null pointers. */
void FailPending(FILE_OBJECT* file, DEVICE_OBJECT* device, NTSTATUS status);

#endif
