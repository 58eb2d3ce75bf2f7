// The host application of a run: calls the library and records what it returns and reports.
#include "lab/Host.h"

#include <atomic>
#include <cstring>
#include <utility>
#include <vector>

#include "lab/Failure.h"
#include "lab/Hex.h"
#include "simulator/BluetoothKeyboard.h"

namespace lab {

namespace {

// The host whose listener is registered. Written once, before the first manager is created; read by
// the library's threads.
std::atomic<Host*> g_host{nullptr};

// Numbers that a listener writes: 32 equal bytes, counted up from the first to the last of these.
constexpr std::uint8_t kFirstListenerByte = 0x80;
constexpr std::uint8_t kLastListenerByte = 0xDF;

constexpr std::uint8_t kMacAddress[6] = {0x02, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};

using Number = std::uint8_t[32];

void SetFields(NdefMessage& message, const Fields& fields) {
    for (const auto& [name, value] : fields) {
        if (name == "url") {
            message.SetUrl(value);
        } else if (name == "mac") {
            SetBytes(message, &NdefMessage::SetMac, value);
        } else if (name == "number") {
            SetBytes(message, &NdefMessage::SetRandomNumber, value);
        } else {
            SetBytes(message, &NdefMessage::SetModel, value);
        }
    }
}

Json NumberField(const Number& number) {
    return {{"number", ToHex(AsText(number))}};
}

Json MessageFields(NdefMessage& message) {
    std::string url;
    Number number = {};
    std::uint8_t mac[6] = {};
    std::uint8_t model[4] = {};
    message.GetUrl(url);
    message.GetRandomNumber(number);
    message.GetMac(mac);
    message.GetModel(model);
    return {{"url", url},
            {"mac", ToHex(AsText(mac))},
            {"number", ToHex(AsText(number))},
            {"model", ToHex(AsText(model))}};
}

}  // namespace

Host::Host(Pc& pc, Recorder& recorder, RunResults& results, std::uint64_t seed)
    : m_pc(pc), m_recorder(recorder), m_results(results), m_random(seed) {
    g_host = this;
}

void Host::OnEvent(int event, const std::uint8_t (&number)[32], int route) {
    Host& self = *g_host;
    self.m_recorder.Add(
        self.m_pc.Thread(), self.m_pc.Now(),
        {{"kind", "event"}, {"event", event}, {"route", route}, {"number", ToHex(AsText(number))}});
    self.m_events.Add(event, route);
    self.m_pc.RecheckWaits();
    self.ActInListener();
}

void Host::ActInListener() {
    ListenerHabits habits;
    std::shared_ptr<NfcManager> manager;
    Number number = {};
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        habits = m_habits;
        manager = At(habits.manager).manager;
        if (manager != nullptr && habits.renews) {
            m_listenerByte = m_listenerByte >= kLastListenerByte || m_listenerByte == 0
                                 ? kFirstListenerByte
                                 : static_cast<std::uint8_t>(m_listenerByte + 1);
            std::memset(number, m_listenerByte, sizeof(number));
        }
    }
    if (habits.pause > 0) {
        m_pc.WaitFor([] { return false; }, habits.pause, "the pause of a listener");
    }
    if (manager != nullptr && habits.renews) {
        const int result = manager->WriteRandNum(number);
        if (result == 0) {
            Content(habits.manager, {{"number", std::string(AsText(number))}});
        }
        Json more = NumberField(number);
        more["listener"] = true;
        m_results.RecordOnly("WriteRandNum", result, more);
    }
    if (manager != nullptr && habits.reads) {
        const int result = manager->ReadRandNum(number);
        m_results.RecordOnly("ReadRandNum", result, {{"listener", true}});
    }
}

std::shared_ptr<NdefMessage> Host::Content(unsigned manager, const Fields& fields) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    NdefMessage& content = At(manager).content;
    SetFields(content, fields);
    return std::make_shared<NdefMessage>(content);
}

std::shared_ptr<NdefMessage> Host::Own(unsigned manager) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return At(manager).own;
}

std::shared_ptr<NfcManager> Host::Manager(unsigned manager) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    RefuseIf(At(manager).manager == nullptr, "there is no manager; \"start\" makes one");
    return At(manager).manager;
}

void Host::FillRandom(std::uint8_t (&number)[32]) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    for (std::uint8_t& byte : number) {
        byte = static_cast<std::uint8_t>(m_random());
    }
}

void Host::Record(unsigned manager, const std::string& operation, const Json& result, Json more) {
    if (manager > 1) {
        more["manager"] = manager;
    }
    m_results.Record(operation, result, more);
}

void Host::Start(int pcType) {
    NdefMessage content;
    content.Init(static_cast<char>('0' + pcType));
    std::uint8_t type = 0;
    content.GetPcType(type);
    if (type != pcType) {
        Record(1, "Init", false);
        return;
    }
    content.SetMac(kMacAddress);
    Number number;
    FillRandom(number);
    content.SetRandomNumber(number);
    Record(1, "Init", true, MessageFields(content));
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        for (Slot& slot : m_slots) {
            slot.content = content;
        }
    }
    StartManager(1, {});
}

bool Host::Create(unsigned manager, const Fields& fields) {
    const std::shared_ptr<NdefMessage> message = Content(manager, fields);
    std::shared_ptr<NfcManager> made =
        NfcManager::Create(message, m_listening ? &Host::OnEvent : nullptr);
    const bool created = made != nullptr;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        At(manager).own = message;
        At(manager).manager.swap(made);
    }
    made.reset();  // the manager before, outside the lock
    Record(manager, "Create", created);
    return created;
}

void Host::StartManager(unsigned manager, const Fields& fields) {
    if (!Create(manager, fields) || !Open(manager)) {
        return;
    }
    // The message that the manager shares, so that it stays the manager's own whatever the first
    // reading returns.
    const std::shared_ptr<NdefMessage> own = Own(manager);
    Record(manager, "WriteMessage", Manager(manager)->WriteMessage(own));
}

bool Host::Open(unsigned manager) {
    // A PC that has only a Bluetooth keyboard has no tag of its own for DeviceInit to find.
    if (m_pc.Parts().FirstRoute().IsDevice()) {
        DeviceInit(manager);
        if (!m_results.LastSucceeded()) {
            return false;
        }
    }
    Connect(manager, true);
    return true;
}

void Host::DeviceInit(unsigned manager) {
    Record(manager, "DeviceInit", Manager(manager)->DeviceInit());
}

void Host::Connect(unsigned manager, bool on) {
    const std::shared_ptr<NfcManager> with = Manager(manager);
    if (m_pc.Parts().HasRoute("hid")) {
        Record(manager, "SetMcuKbConnectStatus", with->SetMcuKbConnectStatus(on));
    }
    if (m_pc.Parts().HasRoute("ble")) {
        const std::uint64_t address = simulator::kDefaultBleAddress;
        m_connected = on;
        Record(manager, on ? "BtConnect" : "BtDisconnect",
               on ? with->BtConnect(address) : with->BtDisconnect(address));
    }
}

void Host::Renew(unsigned manager, const std::string& bytes) {
    Number number;
    if (bytes.empty()) {
        FillRandom(number);
    } else {
        std::memcpy(number, bytes.data(), sizeof(number));
    }
    const int result = Manager(manager)->WriteRandNum(number);
    if (result == 0) {
        Content(manager, {{"number", std::string(AsText(number))}});
    }
    Record(manager, "WriteRandNum", result, NumberField(number));
}

void Host::Write(unsigned manager, const Fields& fields) {
    const std::shared_ptr<NfcManager> with = Manager(manager);
    Record(manager, "WriteMessage", with->WriteMessage(Content(manager, fields)));
}

void Host::ReadNumber(unsigned manager) {
    Number number = {};
    const int result = Manager(manager)->ReadRandNum(number);
    Record(manager, "ReadRandNum", result, result == 0 ? NumberField(number) : Json::object());
}

void Host::ReadMessage(unsigned manager, bool own) {
    const std::shared_ptr<NdefMessage> target = own ? Own(manager) : Content(manager, {});
    const int result = Manager(manager)->ReadMessage(target);
    Record(manager, "ReadMessage", result, result == 0 ? MessageFields(*target) : Json::object());
}

void Host::Update(unsigned manager, const Fields& fields) {
    const std::shared_ptr<NfcManager> with = Manager(manager);
    Content(manager, fields);
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        SetFields(*At(manager).own, fields);
    }
    Record(manager, "UpdateNfcData", with->UpdateNfcData());
}

void Host::Listen(unsigned manager, bool on, const Fields& fields) {
    const std::shared_ptr<NfcManager> with = Manager(manager);
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_habits = {manager, NumberOf(fields, "pause"), fields.count("reads") > 0,
                    fields.count("renews") > 0};
    }
    if (on && !m_listening) {
        m_events.ForgetOpen();
    }
    m_listening = on;
    with->RegisterListener(on ? &Host::OnEvent : nullptr);
}

void Host::Stop(unsigned manager) {
    std::shared_ptr<NfcManager> last = Manager(manager);  // let go of outside the lock
    const std::lock_guard<std::mutex> guard(m_mutex);
    At(manager).manager.reset();
}

void Host::End() {
    std::vector<std::shared_ptr<NfcManager>> managers;  // let go of outside the lock
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        for (Slot& slot : m_slots) {
            if (slot.manager != nullptr) {
                managers.push_back(std::exchange(slot.manager, nullptr));
            }
        }
    }
    if (m_connected && !managers.empty()) {
        managers.front()->BtDisconnect(simulator::kDefaultBleAddress);
    }
}

}  // namespace lab
