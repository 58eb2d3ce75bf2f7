// Finds out which frame format the chip speaks, which chip it is, and which pauses suit it.
#pragma once

#include "chip/NfcDeviceContext.h"

/// Probes the chip on DeviceHandle, which must be open with the open request done, and fills in
/// `linkType` and `chipKind` and both delays. There is no failing outcome: a chip that answers
/// nothing ends as one like FM11N. The caller holds the device mutex; the other threads see the
/// record's last answer until the new one is complete.
void DetectChip(NfcDeviceContext& context);

/// The driver of a frame format, or null where no format is set.
NfcSpbCommon* DriverFor(NfcLinkType linkType);
