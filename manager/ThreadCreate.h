// Starting the two event threads behind a write.
#pragma once

/// Arms the next visit, lets the loops run, and starts what is not there. True when both threads
/// exist. When one could not be started the other is let go of and ends by itself.
bool NfcThreadCreate();
