// Every request is pending first; a timer ends it.
#include "simulator/SpbDriver.h"

#include <algorithm>
#include <utility>

#include "platform/emulation/Kernel.h"

namespace simulator {

namespace {

constexpr DWORD kErrorInvalidFunction = 1;  // the result of an unknown control code

void Remove(std::vector<emulation::RequestPtr>& requests, const emulation::RequestPtr& request) {
    requests.erase(std::remove(requests.begin(), requests.end(), request), requests.end());
}

}  // namespace

SpbDriver::SpbDriver(std::shared_ptr<Chip> chip, Micros busLatency)
    : m_chip(std::move(chip)), m_busLatency(busLatency) {}

SpbDriver::~SpbDriver() = default;

DWORD SpbDriver::Open() {
    if (m_gone) {
        return ERROR_FILE_NOT_FOUND;
    }
    // The driver that was opened last gets the interrupts; one that is destroyed gets none.
    m_latched = false;
    m_chip->Bus().OnInterrupt([weak = weak_from_this()] {
        if (const auto self = weak.lock()) {
            self->InterruptRaised();
        }
    });
    return ERROR_SUCCESS;
}

void SpbDriver::Close() {
    FailAll(ERROR_OPERATION_ABORTED);
}

void SpbDriver::Unplug() {
    m_gone = true;
    FailAll(ERROR_DEVICE_NOT_CONNECTED);
}

void SpbDriver::FailAll(DWORD error) {
    std::vector<emulation::RequestPtr> all = std::exchange(m_transfers, {});
    all.insert(all.end(), m_waits.begin(), m_waits.end());
    m_waits.clear();
    for (const emulation::RequestPtr& request : all) {
        request->Fail(error);
    }
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
    m_transfers.push_back(request);
    emulation::After(m_busLatency, [weak = weak_from_this(), request] {
        const auto self = weak.lock();
        if (self != nullptr && request->Pending()) {
            self->Finish(request);
        }
    });
    return ERROR_IO_PENDING;
}

void SpbDriver::Finish(const emulation::RequestPtr& request) {
    Remove(m_transfers, request);
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
    emulation::After(after, [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (self == nullptr) {
            return;
        }
        self->m_deliveryDue = false;
        if (self->m_waits.empty()) {
            self->m_latched = true;  // the wait was cancelled; the next one gets the interrupt
            return;
        }
        const emulation::RequestPtr request = self->m_waits.front();
        self->m_waits.erase(self->m_waits.begin());
        request->Complete(nullptr, 0);
    });
}

void SpbDriver::Cancel(const emulation::RequestPtr& request) {
    Remove(m_transfers, request);
    Remove(m_waits, request);
}

}  // namespace simulator
