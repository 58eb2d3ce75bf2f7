// Device start with the manager's retries.
#pragma once

class NfcProxy;

/// Up to three attempts, with 300 ms after each failure. Logs nothing of its own.
bool StartDeviceWithRetries(NfcProxy& proxy);
