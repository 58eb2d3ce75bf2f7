// The deferred call: reports that a phone has left once the field has been quiet long enough.
#pragma once

/// Wakes the deferred call thread at the first report of a visit. Blocks while the thread still
/// watches an earlier visit. Called with no lock held.
void notifyDeferCallThread();
