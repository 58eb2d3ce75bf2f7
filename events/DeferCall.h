// The deferred call: reports that a phone has left once the field has been quiet long enough.
#pragma once

/// A first report, from before the listener hears of it until the visit has been taken over by the
/// deferred call thread. That thread does not end before the leave, which each report is owed.
class FirstReport {
  public:
    FirstReport();
    ~FirstReport();
    FirstReport(const FirstReport&) = delete;
    FirstReport& operator=(const FirstReport&) = delete;

    /// False when a stop has ended the deferred call thread: nobody could report the leave, so the
    /// visit must not be opened.
    bool allowed() const { return m_allowed; }

    /// The listener knows of the visit: hands it over. Blocks while an earlier visit is watched.
    /// Called with no lock held.
    void HandOver();

  private:
    bool m_allowed;
    bool m_handedOver = false;
};

/// Wakes the deferred call thread at the first report of a visit, as FirstReport does.
void notifyDeferCallThread();
