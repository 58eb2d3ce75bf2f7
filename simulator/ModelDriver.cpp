#include "simulator/ModelDriver.h"

#include <algorithm>
#include <utility>

#include "platform/emulation/Kernel.h"

namespace simulator {

void ModelDriver::Unplug() {
    m_gone = true;
    FailAll(ERROR_DEVICE_NOT_CONNECTED);
}

void ModelDriver::FailAll(DWORD error) {
    Requests all = std::exchange(m_first, {});
    all.insert(all.end(), m_second.begin(), m_second.end());
    m_second.clear();
    for (const emulation::RequestPtr& request : all) {
        request->Fail(error);
    }
}

void ModelDriver::Cancel(const emulation::RequestPtr& request) {
    for (Requests* const queue : {&m_first, &m_second}) {
        queue->erase(std::remove(queue->begin(), queue->end(), request), queue->end());
    }
}

DWORD ModelDriver::EndLater(Requests& queue, const emulation::RequestPtr& request, Micros latency) {
    queue.push_back(request);
    After(latency, [this, request] {
        if (request->Pending()) {
            Cancel(request);
            Finish(request);
        }
    });
    return ERROR_IO_PENDING;
}

void ModelDriver::After(Micros delay, std::function<void()> action) {
    emulation::After(delay, [weak = weak_from_this(), action = std::move(action)] {
        if (const auto self = weak.lock()) {
            action();
        }
    });
}

emulation::RequestPtr ModelDriver::TakeFirst(Requests& queue) {
    emulation::RequestPtr request = queue.front();
    queue.erase(queue.begin());
    return request;
}

}  // namespace simulator
