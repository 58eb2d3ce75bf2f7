#include "tests/support/Desk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <mutex>

#include "platform/TraceLog.h"
#include "simulator/BluetoothKeyboard.h"
#include "simulator/SpbDriver.h"

using simulator::PcRoute;

namespace testing_support {

namespace {

// The listener is a plain function, so what it hears is the process's. Any thread.
std::mutex g_heardMutex;
std::vector<Heard> g_heard;

constexpr std::size_t kShortUri = 1;
constexpr std::size_t kLongUri = 50;
constexpr unsigned kImageRegister = 16;
constexpr unsigned kNumberBehindUri = 72;

std::size_t UriLength(std::uint8_t pcType) {
    return pcType == 2 ? kShortUri : kLongUri;
}

std::string Hex(const std::vector<std::uint8_t>& bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        char digits[4];
        std::snprintf(digits, sizeof(digits), " %02x", byte);
        text += digits;
    }
    return text;
}

}  // namespace

Number NumberOf(std::uint8_t fill) {
    Number number;
    number.fill(fill);
    return number;
}

std::vector<Heard> HeardSoFar() {
    const std::lock_guard<std::mutex> lock(g_heardMutex);
    return g_heard;
}

std::vector<int> EventsHeard(int route) {
    std::vector<int> events;
    for (const Heard& heard : HeardSoFar()) {
        if (route == 0 || heard.route == route) {
            events.push_back(heard.event);
        }
    }
    return events;
}

BusRecorder::BusRecorder() {
    hosted::SetTracer([this](const hosted::TraceEvent& event) { Note(event); });
}

BusRecorder::~BusRecorder() {
    hosted::SetTracer({});
}

void BusRecorder::Note(const hosted::TraceEvent& event) {
    using Kind = hosted::TraceEvent::Kind;
    if (event.kind == Kind::kSleep) {
        m_entries.push_back({event.thread, "sleep " + std::to_string(event.milliseconds)});
    }
    if (event.kind != Kind::kStart ||
        (event.request->kind() == hosted::Request::Kind::kControl &&
         event.request->controlCode() == simulator::kControlInterrupt)) {
        return;
    }
    switch (event.request->kind()) {
        case hosted::Request::Kind::kWrite:
            m_entries.push_back({event.thread, "W" + Hex(event.request->data())});
            break;
        case hosted::Request::Kind::kRead:
            m_entries.push_back({event.thread, "R " + std::to_string(event.request->length())});
            break;
        case hosted::Request::Kind::kControl: {
            char code[24];
            std::snprintf(code, sizeof(code), "IOCTL %08x", event.request->controlCode());
            m_entries.push_back({event.thread, code});
            break;
        }
    }
}

std::vector<std::string> BusRecorder::Take(hosted::ThreadId thread) {
    const hosted::DeviceLock lock;
    std::vector<std::string> texts;
    for (const Entry& entry : m_entries) {
        if (thread == 0 || entry.thread == thread) {
            texts.push_back(entry.text);
        }
    }
    m_entries.clear();
    return texts;
}

Desk::Desk(const std::vector<PcRoute>& routes, const std::string& chip, std::uint8_t pcType)
    : pc(routes, chip), m_routes(routes), m_pcType(pcType) {
    const std::lock_guard<std::mutex> lock(g_heardMutex);
    g_heard.clear();
    g_heard.reserve(1 << 16);
}

Desk::~Desk() {
    manager.reset();
}

void Desk::Listen(int event, const std::uint8_t (&number)[32], int route) {
    Heard heard;
    heard.event = event;
    heard.route = route;
    std::copy(std::begin(number), std::end(number), heard.number.begin());
    heard.time = hosted::Now();
    heard.thread = hosted::CurrentThread();
    const std::lock_guard<std::mutex> lock(g_heardMutex);
    g_heard.push_back(heard);
}

std::shared_ptr<NdefMessage> Desk::NewMessage(std::uint8_t fill) const {
    static const std::uint8_t mac[6] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
    const std::uint8_t model[4] = {0, 0, static_cast<std::uint8_t>(m_pcType == 2 ? 0 : m_pcType),
                                   0};
    std::uint8_t number[32];
    std::fill(std::begin(number), std::end(number), fill);
    auto message = std::make_shared<NdefMessage>();
    message->SetUrl(std::string(UriLength(m_pcType), 'u'));
    message->SetMac(mac);
    message->SetRandomNumber(number);
    message->SetModel(model);
    message->SetPcType(m_pcType);
    return message;
}

bool Desk::Has(PcRoute route) const {
    return std::find(m_routes.begin(), m_routes.end(), route) != m_routes.end();
}

bool Desk::Create() {
    manager = NfcManager::Create(NewMessage(), &Desk::Listen);
    return manager != nullptr;
}

void Desk::Start(std::uint8_t fill) {
    ASSERT_TRUE(Create());
    if (Has(PcRoute::kI2c)) {
        // Detection tells its finding as an error, and the first write finds an empty tag.
        log.Announce("Nfc chip");
        log.Announce("Nfc spb2 format");
        log.Announce("ReadNfcContent: tag type is err");
        log.Announce("ReadMessage ReadNfcContent failed");
        log.Announce("WriteMessage Read failed");
    } else {
        log.Announce("NFC_Error opening Spb driver, last error = 2");
    }
    const bool wired = m_routes.size() > 1 || !Has(PcRoute::kBle);
    if (wired) {
        ASSERT_TRUE(manager->DeviceInit());
    }
    if (Has(PcRoute::kHid)) {
        ASSERT_TRUE(manager->SetMcuKbConnectStatus(true));
    }
    if (Has(PcRoute::kBle)) {
        ASSERT_TRUE(manager->BtConnect(simulator::kDefaultBleAddress));
    }
    if (!Has(PcRoute::kI2c) && !Has(PcRoute::kUsb)) {
        log.Announce("spbDriverOps == nullptr");
        // No driver answers the interrupt thread, which ends at once.
        log.Announce("NFC Interrupt ");
        log.Announce("NFC WaitOnInterruptLoop return");
    }
    ASSERT_EQ(manager->WriteMessage(NewMessage(fill)), 0);
}

bool Desk::WaitForEvents(std::size_t count, hosted::Micros timeout) {
    return hosted::WaitFor([count] { return HeardSoFar().size() >= count; }, timeout, "events");
}

bool Desk::WaitForThreads(std::size_t count, hosted::Micros timeout) {
    const hosted::Micros end = hosted::Now() + timeout;
    while (hosted::Live().threads > count && hosted::Now() < end) {
        Pass(hosted::kMillisecond);
    }
    return hosted::Live().threads <= count;
}

void Desk::Pass(hosted::Micros time) {
    hosted::WaitFor([] { return false; }, time, "time");
}

std::string Desk::ImageOnChip(std::size_t length) {
    const hosted::DeviceLock lock;
    const simulator::Bytes bytes = pc.chip()->BackDoor().Memory(kImageRegister, length);
    return std::string(bytes.begin(), bytes.end());
}

Number Desk::NumberOnChip() {
    const hosted::DeviceLock lock;
    const auto reg = static_cast<unsigned>(kNumberBehindUri + UriLength(m_pcType));
    const simulator::Bytes bytes = pc.chip()->BackDoor().Memory(reg, 32);
    Number number;
    std::copy_n(bytes.begin(), number.size(), number.begin());
    return number;
}

void Desk::SetFaults(const std::string& plan) {
    std::string problem;
    const auto faults = simulator::FaultPlan::Parse(plan, problem);
    ASSERT_TRUE(faults) << problem;
    pc.Faults(*faults);
}

void AnnounceStop(LogRecorder& log) {
    log.Announce("NFC Interrupt get Overlapped result ");
    log.Announce("NFC WaitOnInterruptLoop return");
    log.Announce("NFC ReadKeyboardDataThread return");
}

std::vector<std::string> ErrorsIn(const LogRecorder& log) {
    std::vector<std::string> errors;
    for (const LogRecorder::Line& line : log.Lines()) {
        if (line.level == LOG_MESSAGE_LEVEL_ERROR) {
            errors.push_back(line.text);
        }
    }
    return errors;
}

bool HasInOrder(const LogRecorder& log, const std::vector<std::string>& texts) {
    auto next = texts.begin();
    for (const std::string& text : log.Texts()) {
        if (next != texts.end() && text == *next) {
            ++next;
        }
    }
    return next == texts.end();
}

}  // namespace testing_support
