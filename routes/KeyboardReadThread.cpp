// The keyboard read thread: takes 64-byte reports from the keyboard's microcontroller, delivers
// field events and stores the number. Both ends of a visit come from the keyboard, so nothing is
// kept between two reports.
#include <array>

#include "diagnostics/Log.h"
#include "events/EventThread.h"
#include "events/Listener.h"
#include "platform/platform.h"
#include "routes/KeyboardFrame.h"
#include "routes/RouteState.h"
#include "transfer/PendingRequest.h"
#include "transfer/TransferState.h"

namespace {

using Report = std::array<std::uint8_t, kReportSize>;

ShownNumber g_shownOnReport;

void HandleFieldReport(KeyboardReport kind) {
    LogWarnFun("NFC Interrupt arrive");
    switch (kind) {
        case KeyboardReport::kEntered:
            LogWarnFun("NFC_SELECT_IN_FIELD 1st report");
            DeliverEvent(kEventEntered, g_hidRandNumber.value, kRouteHid, g_shownOnReport);
            break;
        case KeyboardReport::kLeft:
            DeliverEvent(kEventLeft, g_hidRandNumber.value, kRouteHid, g_shownOnReport);
            LogLeaveDelivered(g_hidRandNumber.value);
            break;
        default:
            LogWarnFun("not valid mcu data");
            break;
    }
}

void HandleReport(const Report& report) {
    const std::uint8_t* const fromType = report.data() + kHidTypeOffset;
    const KeyboardReport kind = JudgeReport(fromType);
    switch (kind) {
        case KeyboardReport::kNumber: {
            g_hidRandNumber.value.Set(fromType + kAfterType);
            // Set and reset at once: only a reader that waits already is meant.
            const EventSlot::Lease answered = g_RandEvent.value.Get();
            SetEvent(HandleOf(answered));
            ResetEvent(HandleOf(answered));
            break;
        }
        case KeyboardReport::kUnknownType:
            LogWarnFun("NFC not valid data");
            break;
        default:
            HandleFieldReport(kind);
            break;
    }
}

// One read from its start to its end. False when the loop is to be left.
bool ReadOneReport(const EventThread::Ticket& ticket, OVERLAPPED& overlapped, Report& report) {
    PendingRequest request(overlapped);
    const bool started = request.Start(true, [&](HANDLE device) {
        return ReadFile(device, report.data(), kReportSize, nullptr, &overlapped);
    });
    if (!started) {
        LogErrorFun("NFC ReadKeyboardData ReadFile error 0x%x",
                    static_cast<unsigned>(request.StartError()));
        return false;
    }
    LogWarnFun("NFC Wait For KeyboardData");
    // Starting the read has reset the event, and with it a stop that was signalled since the run
    // flag was looked at. Such a stop goes the same way as one that comes during the wait.
    if (g_keyboardThread.Serving(ticket) &&
        WaitForSingleObject(overlapped.hEvent, INFINITE) != WAIT_OBJECT_0) {
        return true;
    }
    if (!request.Succeeded()) {
        LogErrorFun("NFC Interrupt get Overlapped result %u",
                    static_cast<unsigned>(GetLastError()));
        return false;
    }
    HandleReport(report);
    return true;
}

void ReadKeyboardData(EventThread::Ticket& ticket, OVERLAPPED& overlapped) {
    Report report{};
    while (g_keyboardThread.Serving(ticket)) {
        g_keyboardThread.BeginPass(ticket);
        if (!ReadOneReport(ticket, overlapped, report)) {
            return;
        }
    }
}

}  // namespace

DWORD WINAPI ReadKeyboardDataThread(LPVOID /*argument*/) {
    EventThread::Ticket ticket = g_keyboardThread.Enter();
    for (;;) {
        OVERLAPPED overlapped{};
        if (!g_keyboardThread.Arm(ticket, overlapped)) {
            LogErrorFun("NFC error creating overlapped event for ReadKeyboardDataThread - %u",
                        static_cast<unsigned>(GetLastError()));
            return kThreadFailed;
        }
        ReadKeyboardData(ticket, overlapped);
        LogErrorFun("NFC ReadKeyboardDataThread return");
        if (g_keyboardThread.TryEnd(ticket)) {
            return 0;
        }
    }
}
