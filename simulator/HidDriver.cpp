// Reads wait for input reports, writes take an output report to the microcontroller.
#include "simulator/HidDriver.h"

#include <algorithm>
#include <utility>

namespace simulator {

namespace {

constexpr DWORD kErrorInvalidFunction = 1;  // the result of every control request

constexpr std::uint16_t kVendor = 0x7A3E;
constexpr std::uint16_t kProduct = 0x10B8;
constexpr std::uint16_t kUsagePage = 0x464E;
constexpr std::uint16_t kUsage = 0x0043;
constexpr wchar_t kPath[] =
    L"\\\\?\\hid#vid_7a3e&pid_10b8&mi_02#8&2f1c&0&0000#{4d1e55b2-f16f-11cf-88cb-001111000030}";

emulation::HidInterface Interface(const wchar_t* path, std::uint16_t usagePage, std::uint16_t usage,
                                  std::uint16_t vendor, std::uint16_t product) {
    return {path, usagePage, usage, vendor, product};
}

// The device of every decoy: it opens and refuses every request.
class InertDriver : public emulation::Driver {
  public:
    DWORD Start(const emulation::RequestPtr& /*request*/) override { return kErrorInvalidFunction; }
};

}  // namespace

HidDriver::HidDriver(std::shared_ptr<KeyboardMcu> mcu, Micros latency)
    : m_mcu(std::move(mcu)), m_latency(latency) {}

HidDriver::~HidDriver() = default;

DWORD HidDriver::Open() {
    if (m_gone) {
        return ERROR_FILE_NOT_FOUND;
    }
    if (!m_open) {
        m_open = true;
        m_input.clear();  // a handle gets only reports that come after its opening
        m_mcu->OnSend([weak = weak_from_this()](Micros delay, Bytes report) {
            emulation::After(delay, [weak, report = std::move(report)] {
                if (const auto self = weak.lock()) {
                    self->Deliver(report);
                }
            });
        });
    }
    return ERROR_SUCCESS;
}

void HidDriver::Close() {
    m_open = false;
    FailAll(ERROR_OPERATION_ABORTED);
}

void HidDriver::Unplug() {
    m_gone = true;
    FailAll(ERROR_DEVICE_NOT_CONNECTED);
}

void HidDriver::FailAll(DWORD error) {
    std::vector<emulation::RequestPtr> all = std::exchange(m_writes, {});
    all.insert(all.begin(), m_reads.begin(), m_reads.end());
    m_reads.clear();
    for (const emulation::RequestPtr& request : all) {
        request->Fail(error);
    }
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
    m_writes.push_back(request);
    emulation::After(m_latency, [weak = weak_from_this(), request] {
        const auto self = weak.lock();
        if (self == nullptr || !request->Pending()) {
            return;
        }
        self->Cancel(request);
        self->m_mcu->Output(request->data());
        request->Complete(nullptr, request->length());
    });
    return ERROR_IO_PENDING;
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
    const emulation::RequestPtr request = m_reads.front();
    m_reads.pop_front();
    request->Complete(report.data(), std::min(report.size(), request->length()));
}

void HidDriver::Cancel(const emulation::RequestPtr& request) {
    m_reads.erase(std::remove(m_reads.begin(), m_reads.end(), request), m_reads.end());
    m_writes.erase(std::remove(m_writes.begin(), m_writes.end(), request), m_writes.end());
}

emulation::HidInterface KeyboardInterface() {
    return Interface(kPath, kUsagePage, kUsage, kVendor, kProduct);
}

std::vector<emulation::HidInterface> DecoyInterfaces() {
    constexpr std::uint16_t kGenericDesktop = 0x0001;
    constexpr std::uint16_t kGenericKeyboard = 0x0006;
    return {
        // Another maker's mouse.
        Interface(L"\\\\?\\hid#vid_1209&pid_0001#7&1&0&0000", kGenericDesktop, 0x0002, 0x1209,
                  0x0001),
        // The same keyboard's interface for its keys.
        Interface(L"\\\\?\\hid#vid_7a3e&pid_10b8&mi_00#8&11&0&0000", kGenericDesktop,
                  kGenericKeyboard, kVendor, kProduct),
        // The right path and usage, of another product.
        Interface(L"\\\\?\\hid#vid_7a3e&pid_10b8&mi_01#8&12&0&0000", kUsagePage, kUsage, kVendor,
                  0x10B9),
        // The right identity, with the path in upper case.
        Interface(L"\\\\?\\HID#VID_7A3E&PID_10B8&MI_03#8&13&0&0000", kUsagePage, kUsage, kVendor,
                  kProduct),
    };
}

void RegisterKeyboard(const std::shared_ptr<emulation::Driver>& driver, bool decoys) {
    const auto inert = std::make_shared<InertDriver>();
    if (decoys) {
        for (const emulation::HidInterface& decoy : DecoyInterfaces()) {
            emulation::AddHidInterface(decoy, inert);
        }
    }
    emulation::AddHidInterface(KeyboardInterface(), driver);
    if (decoys) {
        emulation::AddHidInterface(DecoyInterfaces().front(), inert);
    }
}

}  // namespace simulator
