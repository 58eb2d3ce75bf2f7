// The deferred call: reports that a phone has left once the field has been quiet long enough.
#pragma once

/// A first report under way, from before the listener hears of it until the deferred call thread
/// has been told. As long as there is one, a deferred call thread that is told to stop does not
/// end: the report is owed its leave.
class FirstReport {
  public:
    FirstReport();
    ~FirstReport();
    FirstReport(const FirstReport&) = delete;
    FirstReport& operator=(const FirstReport&) = delete;
};

/// Wakes the deferred call thread at the first report of a visit. Blocks while the thread still
/// watches an earlier visit. Called with no lock held.
void notifyDeferCallThread();
