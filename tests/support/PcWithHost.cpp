#include "tests/support/PcWithHost.h"

#include <algorithm>
#include <cstdio>
#include <mutex>

#include "platform/NeverDestroyed.h"
#include "platform/services/TraceLog.h"
#include "platform/services/standin/ClientBackDoor.h"
#include "simulator/SpbDriver.h"

namespace testing_support {

namespace {

// The listener is a plain function, so what it hears is the process's. Any thread, and the leave of
// a last visit may come while the process ends.
std::mutex g_eventsMutex;
platform::NeverDestroyed<std::vector<ReceivedEvent>> g_events;
platform::NeverDestroyed<std::function<void(const ReceivedEvent&)>> g_reaction;

constexpr unsigned kImageRegister = 16;

std::size_t UriLength(std::uint8_t pcType) {
    return pcType == 2 ? 1 : 50;
}

std::string TextOf(const emulation::Request& request) {
    using Kind = emulation::Request::Kind;
    if (request.kind() == Kind::kRead) {
        return "R " + std::to_string(request.length());
    }
    if (request.kind() == Kind::kControl) {
        return "open request";
    }
    std::string text = "W";
    for (const unsigned byte : request.data()) {
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

int Renew(NfcManager& manager, const Number& number) {
    return manager.WriteRandNum(reinterpret_cast<const std::uint8_t(&)[32]>(number));
}

void SetNumber(NdefMessage& message, const Number& number) {
    message.SetRandomNumber(reinterpret_cast<const std::uint8_t(&)[32]>(number));
}

Number NumberIn(NdefMessage& message) {
    Number number{};
    message.GetRandomNumber(reinterpret_cast<std::uint8_t(&)[32]>(number));
    return number;
}

void OnThread(std::function<void()> body) {
    CloseHandle(StartThread(std::move(body)));
}

void RefuseBleWrites(unsigned count) {
    for (unsigned nth = 1; nth <= count; ++nth) {
        LinkDockService::FailCall(LinkDockService::BleCall::kWrite, nth);
    }
}

void ReactToEvents(std::function<void(const ReceivedEvent&)> reaction) {
    const std::lock_guard<std::mutex> lock(g_eventsMutex);
    g_reaction.value = std::move(reaction);
}

std::vector<ReceivedEvent> TakeEvents() {
    const std::lock_guard<std::mutex> lock(g_eventsMutex);
    return std::exchange(g_events.value, {});
}

std::vector<ReceivedEvent> EventsSoFar() {
    const std::lock_guard<std::mutex> lock(g_eventsMutex);
    return g_events.value;
}

std::vector<int> EventNumbers(int route) {
    std::vector<int> events;
    for (const ReceivedEvent& heard : EventsSoFar()) {
        if (route == 0 || heard.route == route) {
            events.push_back(heard.event);
        }
    }
    return events;
}

BusRecorder::BusRecorder() {
    emulation::SetTracer([this](const emulation::TraceEvent& event) {
        using Kind = emulation::TraceEvent::Kind;
        if (event.kind == Kind::kSleep) {
            m_entries.emplace_back(event.thread, "sleep " + std::to_string(event.milliseconds));
        } else if (event.kind == Kind::kStart &&
                   event.request->controlCode() != simulator::kControlInterrupt) {
            m_entries.emplace_back(event.thread, TextOf(*event.request));
        }
    });
}

BusRecorder::~BusRecorder() {
    emulation::SetTracer({});
}

Texts BusRecorder::Take(emulation::ThreadId thread) {
    const emulation::DeviceLock lock;
    Texts texts;
    for (const auto& [doer, text] : std::exchange(m_entries, {})) {
        if (thread == 0 || doer == thread) {
            texts.push_back(text);
        }
    }
    return texts;
}

PcWithHost::PcWithHost(const std::vector<PcRoute>& routes, const std::string& chip,
                       std::uint8_t pcType)
    : pc(routes, chip), m_routes(routes), m_pcType(pcType) {
    TakeEvents();
    log.Announce("NFC Interrupt get Overlapped result ", "NFC WaitOnInterruptLoop return",
                 "NFC ReadKeyboardDataThread return");
}

PcWithHost::~PcWithHost() {
    manager.reset();
    if (pc.spb() != nullptr) {
        const emulation::DeviceLock lock;
        EXPECT_EQ(pc.spb()->Violations(), 0U) << "one transfer at a time";
    }
    ReactToEvents({});
}

void PcWithHost::Listen(int event, const std::uint8_t (&number)[32], int route) {
    Number copy;
    std::copy(std::begin(number), std::end(number), copy.begin());
    const ReceivedEvent heard{event, route, copy, emulation::Now(), emulation::CurrentThread()};
    std::unique_lock<std::mutex> lock(g_eventsMutex);
    g_events.value.push_back(heard);
    const std::function<void(const ReceivedEvent&)> reaction = g_reaction.value;
    lock.unlock();
    if (reaction) {
        reaction(heard);
    }
    EXPECT_TRUE(std::equal(copy.begin(), copy.end(), number)) << "changed during the call";
}

std::shared_ptr<NdefMessage> PcWithHost::NewMessage(std::uint8_t number,
                                                    std::uint8_t others) const {
    auto message = std::make_shared<NdefMessage>();
    message->SetUrl(std::string(UriLength(m_pcType), static_cast<char>(others)));
    message->SetMac({others, others, others, others, others, others});
    SetNumber(*message, NumberOf(number));
    message->SetModel({others, others, others, others});
    message->SetPcType(m_pcType);
    return message;
}

bool PcWithHost::Has(PcRoute route) const {
    return std::find(m_routes.begin(), m_routes.end(), route) != m_routes.end();
}

bool PcWithHost::Create(std::shared_ptr<NdefMessage> content) {
    message = content == nullptr ? NewMessage() : std::move(content);
    manager = NfcManager::Create(message, &PcWithHost::Listen);
    return manager != nullptr;
}

bool PcWithHost::StartDevices(NfcManager& with) const {
    const bool started = m_routes == std::vector<PcRoute>{PcRoute::kBle} || with.DeviceInit();
    return (!Has(PcRoute::kHid) || with.SetMcuKbConnectStatus(true)) &&
           (!Has(PcRoute::kBle) || with.BtConnect(simulator::kDefaultBleAddress)) && started;
}

void PcWithHost::Start(std::uint8_t number) {
    ASSERT_TRUE(Create());
    // Detection logs its finding as an error, and the first write finds an empty tag.
    log.Announce("NFC_Error opening Spb driver, last error = 2", "Nfc chip", "Nfc spb2 format",
                 "ReadNfcContent: tag type is err", "ReadMessage ReadNfcContent failed",
                 "WriteMessage Read failed");
    ASSERT_TRUE(StartDevices(*manager));
    if (!Has(PcRoute::kI2c) && !Has(PcRoute::kUsb)) {
        // No driver answers the interrupt thread, which ends at once.
        log.Announce("spbDriverOps == nullptr", "NFC Interrupt ");
    }
    ASSERT_EQ(manager->WriteMessage(NewMessage(number)), 0);
}

std::string PcWithHost::ImageOnChip(std::size_t length) {
    const emulation::DeviceLock lock;
    const simulator::Bytes bytes =
        pc.chip() != nullptr       ? pc.chip()->BackDoor().Memory(kImageRegister, length)
        : pc.keyboard() != nullptr ? pc.keyboard()->Memory(kImageRegister, length)
                                   : pc.bluetooth()->Memory(kImageRegister, length);
    return {bytes.begin(), bytes.end()};
}

Number PcWithHost::NumberOnChip() {
    const std::size_t before = NumberRegister() - kImageRegister;
    const std::string image = ImageOnChip(before + Number().size());
    Number number;
    std::copy(image.begin() + static_cast<std::ptrdiff_t>(before), image.end(), number.begin());
    return number;
}

void PcWithHost::SetFaults(const std::string& plan) {
    std::string problem;
    pc.Faults(simulator::FaultPlan::Parse(plan, problem).value());
}

bool HasInOrder(const LogRecorder& log, const Texts& texts) {
    auto next = texts.begin();
    for (const std::string& text : log.TextsSoFar()) {
        next += next != texts.end() && text == *next ? 1 : 0;
    }
    return next == texts.end();
}

}  // namespace testing_support
