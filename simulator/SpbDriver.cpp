// Every request is pending first; a timer ends it.
#include "simulator/SpbDriver.h"

#include "platform/emulation/Kernel.h"

namespace simulator {

DWORD SpbDriver::Open() {
    if (m_gone) {
        return ERROR_FILE_NOT_FOUND;
    }
    // The driver that was opened last gets the interrupts; one that is destroyed gets none.
    m_latched = false;
    m_chip->Bus().OnInterrupt([this, weak = weak_from_this()] {
        if (const auto alive = weak.lock()) {
            InterruptRaised();
        }
    });
    return ERROR_SUCCESS;
}

DWORD SpbDriver::Start(const emulation::RequestPtr& request) {
    if (m_gone) {
        return ERROR_DEVICE_NOT_CONNECTED;
    }
    const bool isControl = request->kind() == emulation::Request::Kind::kControl;
    if (isControl && request->controlCode() == kControlInterrupt) {
        m_waits.push_back(request);
        if ((m_latched || m_chip->Bus().InterruptAsserted()) && !m_deliveryDue) {
            DeliverInterrupt(m_latched || m_transferSinceInterrupt ? m_busLatency
                                                                   : kAssertedInterruptGap);
            m_latched = false;
        }
        return ERROR_IO_PENDING;
    }
    if (isControl && request->controlCode() != kControlOpen) {
        return kErrorInvalidFunction;
    }
    if (isControl) {
        ++m_openRequests;
    }
    if (!m_transfers.empty()) {
        ++m_violations;
    }
    return EndLater(m_transfers, request, m_busLatency);
}

void SpbDriver::Finish(const emulation::RequestPtr& request) {
    m_transferSinceInterrupt = true;
    const Micros now = emulation::Now();
    switch (request->kind()) {
        case emulation::Request::Kind::kControl:
            request->Complete(nullptr, 0);
            break;
        case emulation::Request::Kind::kWrite:
            if (m_chip->Bus().Write(now, request->data())) {
                request->Complete(nullptr, request->length());
            } else {
                request->Fail(ERROR_IO_DEVICE);
            }
            break;
        case emulation::Request::Kind::kRead:
            if (const auto bytes = m_chip->Bus().Read(now, request->length())) {
                request->Complete(bytes->data(), bytes->size());
            } else {
                request->Fail(ERROR_IO_DEVICE);
            }
            break;
    }
}

void SpbDriver::InterruptRaised() {
    if (m_waits.empty() || m_deliveryDue) {
        m_latched = true;
    } else {
        DeliverInterrupt(m_busLatency);
    }
}

// Never ends a wait in the call that starts it: the host takes an answer at once for a failure.
void SpbDriver::DeliverInterrupt(Micros after) {
    m_deliveryDue = true;
    m_transferSinceInterrupt = false;
    After(after, [this] {
        m_deliveryDue = false;
        if (m_waits.empty()) {
            m_latched = true;  // the wait was cancelled; the next one gets the interrupt
        } else {
            TakeFirst(m_waits)->Complete(nullptr, 0);
        }
    });
}

}  // namespace simulator
