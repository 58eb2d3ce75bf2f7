// Reads wait for input reports, writes take an output report to the microcontroller.
#include "simulator/HidDriver.h"

#include <algorithm>
#include <utility>

namespace simulator {

namespace {

constexpr std::uint16_t kVendor = 0x7A3E;
constexpr std::uint16_t kProduct = 0x10B8;
constexpr std::uint16_t kUsagePage = 0x464E;
constexpr std::uint16_t kUsage = 0x0043;
constexpr wchar_t kPath[] =
    L"\\\\?\\hid#vid_7a3e&pid_10b8&mi_02#8&2f1c&0&0000#{4d1e55b2-f16f-11cf-88cb-001111000030}";

// The device of every decoy: it opens and refuses every request.
class InertDriver : public emulation::Driver {
  public:
    DWORD Start(const emulation::RequestPtr& /*request*/) override { return kErrorInvalidFunction; }
};

}  // namespace

DWORD HidDriver::Open() {
    if (m_gone) {
        return ERROR_FILE_NOT_FOUND;
    }
    if (!m_open) {
        m_open = true;
        m_input.clear();  // a handle gets only reports that come after its opening
        m_mcu->OnSend([this, weak = weak_from_this()](Micros delay, Bytes report) {
            emulation::After(delay, [this, weak, report = std::move(report)] {
                if (const auto alive = weak.lock()) {
                    Deliver(report);
                }
            });
        });
    }
    return ERROR_SUCCESS;
}

void HidDriver::Close() {
    m_open = false;
    ModelDriver::Close();
}

DWORD HidDriver::Start(const emulation::RequestPtr& request) {
    if (m_gone) {
        return ERROR_DEVICE_NOT_CONNECTED;
    }
    if (request->kind() == emulation::Request::Kind::kControl) {
        return kErrorInvalidFunction;
    }
    if (request->length() != kReportSize) {
        return ERROR_INVALID_PARAMETER;
    }
    if (request->kind() == emulation::Request::Kind::kRead) {
        if (m_input.empty()) {
            m_reads.push_back(request);
            return ERROR_IO_PENDING;
        }
        const Bytes report = std::move(m_input.front());
        m_input.pop_front();
        request->Complete(report.data(), report.size());
        return ERROR_SUCCESS;
    }
    return EndLater(m_writes, request, kReportLatency);
}

void HidDriver::Finish(const emulation::RequestPtr& request) {
    m_mcu->Output(request->data());
    request->Complete(nullptr, request->length());
}

void HidDriver::Deliver(const Bytes& report) {
    if (m_gone || !m_open) {
        return;
    }
    if (m_reads.empty()) {
        m_input.push_back(report);
        if (m_input.size() > kInputQueueLength) {
            m_input.pop_front();
        }
        return;
    }
    const emulation::RequestPtr request = TakeFirst(m_reads);
    request->Complete(report.data(), std::min(report.size(), request->length()));
}

emulation::HidInterface KeyboardInterface() {
    return {kPath, kUsagePage, kUsage, kVendor, kProduct};
}

std::vector<emulation::HidInterface> DecoyInterfaces() {
    constexpr std::uint16_t kGenericDesktop = 0x0001;
    constexpr std::uint16_t kGenericKeyboard = 0x0006;
    return {
        // Another maker's mouse.
        {L"\\\\?\\hid#vid_1209&pid_0001#7&1&0&0000", kGenericDesktop, 0x0002, 0x1209, 0x0001},
        // The same keyboard's interface for its keys.
        {L"\\\\?\\hid#vid_7a3e&pid_10b8&mi_00#8&11&0&0000", kGenericDesktop, kGenericKeyboard,
         kVendor, kProduct},
        // The right path and usage, of another product.
        {L"\\\\?\\hid#vid_7a3e&pid_10b8&mi_01#8&12&0&0000", kUsagePage, kUsage, kVendor, 0x10B9},
        // The right identity, with the path in upper case.
        {L"\\\\?\\HID#VID_7A3E&PID_10B8&MI_03#8&13&0&0000", kUsagePage, kUsage, kVendor, kProduct},
    };
}

void RegisterKeyboard(const std::shared_ptr<emulation::Driver>& driver) {
    const auto inert = std::make_shared<InertDriver>();
    for (const emulation::HidInterface& decoy : DecoyInterfaces()) {
        emulation::AddHidInterface(decoy, inert);
    }
    emulation::AddHidInterface(KeyboardInterface(), driver);
    emulation::AddHidInterface(DecoyInterfaces().front(), inert);
}

}  // namespace simulator
