// The host application of a run: calls the library and records what it returns and reports.
#include "lab/Host.h"

#include <atomic>
#include <cstring>
#include <string_view>
#include <utility>

#include "lab/Failure.h"
#include "lab/Hex.h"

namespace lab {

namespace {

// The host whose listener is registered. Written once, before the first manager is created; read by
// the library's threads.
std::atomic<Host*> g_host{nullptr};

constexpr std::uint8_t kMacAddress[6] = {0x02, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};

using Number = std::uint8_t[32];

std::string_view View(const std::uint8_t* bytes, std::size_t count) {
    return {reinterpret_cast<const char*>(bytes), count};
}

template <std::size_t Size>
void SetField(NdefMessage& message, int (NdefMessage::*setter)(const std::uint8_t (&)[Size]),
              const std::string& bytes) {
    std::uint8_t field[Size];
    std::memcpy(field, bytes.data(), Size);
    (message.*setter)(field);
}

}  // namespace

Host::Host(Stage& stage, Recorder& recorder, RunResults& results, std::uint64_t seed)
    : m_stage(stage), m_recorder(recorder), m_results(results), m_random(seed) {
    g_host = this;
}

void Host::OnEvent(int event, const std::uint8_t (&number)[32], int route) {
    Host& self = *g_host;
    Json object;
    object["kind"] = "event";
    object["event"] = event;
    object["route"] = route;
    object["number"] = ToHex(View(number, sizeof(number)));
    self.m_recorder.Add(self.m_stage.Thread(), self.m_stage.Now(), std::move(object));
    self.m_events.Add(event);
    self.m_stage.RecheckWaits();
}

std::shared_ptr<NdefMessage> Host::Message() const {
    return std::make_shared<NdefMessage>(m_message);
}

NfcManager& Host::Manager() {
    if (m_manager == nullptr) {
        throw WrongCall("there is no manager: \"start\" would be right before it");
    }
    return *m_manager;
}

void Host::FillRandom(std::uint8_t (&number)[32]) {
    for (std::uint8_t& byte : number) {
        byte = static_cast<std::uint8_t>(m_random());
    }
}

void Host::Start(int pcType) {
    m_message.Init(static_cast<char>('0' + pcType));
    std::uint8_t type = 0;
    m_message.GetPcType(type);
    m_results.Record("Init", type == pcType);
    if (type != pcType) {
        return;
    }
    m_message.SetMac(kMacAddress);
    Number number;
    FillRandom(number);
    m_message.SetRandomNumber(number);
    CreateManager();
}

void Host::CreateManager() {
    m_manager = NfcManager::Create(Message(), m_listening ? &Host::OnEvent : nullptr);
    m_results.Record("Create", m_manager != nullptr);
    if (m_manager == nullptr) {
        return;
    }
    // A PC that has only a Bluetooth keyboard has no tag of its own for DeviceInit to find.
    if (m_stage.Route() != "ble") {
        DeviceInit();
        if (!m_results.LastSucceeded()) {
            return;
        }
    }
    if (m_stage.Route() == "ble" || m_stage.HasKeyboardController()) {
        Connect(true);
    }
    Write({});
}

void Host::DeviceInit() {
    m_results.Record("DeviceInit", Manager().DeviceInit());
}

void Host::Connect(bool on) {
    if (m_stage.Route() == "ble") {
        const std::uint64_t address = m_stage.KeyboardAddress();
        m_connected = on;
        m_results.Record(on ? "BtConnect" : "BtDisconnect",
                         on ? Manager().BtConnect(address) : Manager().BtDisconnect(address));
    } else if (m_stage.HasKeyboardController()) {
        m_results.Record("SetMcuKbConnectStatus", Manager().SetMcuKbConnectStatus(on));
    } else {
        throw WrongCall("nothing can be connected on the " + m_stage.Route() +
                        " route: \"on hid,ble\" before it would be right");
    }
}

void Host::Renew(const std::string& bytes) {
    Number number;
    if (bytes.empty()) {
        FillRandom(number);
    } else {
        std::memcpy(number, bytes.data(), sizeof(number));
    }
    const int result = Manager().WriteRandNum(number);
    if (result == 0) {
        m_message.SetRandomNumber(number);
    }
    m_results.Record("WriteRandNum", result, {{"number", ToHex(View(number, sizeof(number)))}});
}

void Host::Write(const std::map<std::string, std::string>& fields) {
    for (const auto& [name, value] : fields) {
        if (name == "url") {
            m_message.SetUrl(value);
        } else if (name == "mac") {
            SetField(m_message, &NdefMessage::SetMac, value);
        } else if (name == "number") {
            SetField(m_message, &NdefMessage::SetRandomNumber, value);
        } else {
            SetField(m_message, &NdefMessage::SetModel, value);
        }
    }
    m_results.Record("WriteMessage", Manager().WriteMessage(Message()));
}

void Host::ReadNumber() {
    Number number = {};
    const int result = Manager().ReadRandNum(number);
    m_results.Record(
        "ReadRandNum", result,
        result == 0 ? Json{{"number", ToHex(View(number, sizeof(number)))}} : Json::object());
}

void Host::ReadMessage() {
    const std::shared_ptr<NdefMessage> target = Message();
    const int result = Manager().ReadMessage(target);
    Json more = Json::object();
    if (result == 0) {
        std::string url;
        Number number = {};
        std::uint8_t mac[6] = {};
        std::uint8_t model[4] = {};
        target->GetUrl(url);
        target->GetRandomNumber(number);
        target->GetMac(mac);
        target->GetModel(model);
        more["url"] = url;
        more["mac"] = ToHex(View(mac, sizeof(mac)));
        more["number"] = ToHex(View(number, sizeof(number)));
        more["model"] = ToHex(View(model, sizeof(model)));
    }
    m_results.Record("ReadMessage", result, more);
}

void Host::Update() {
    m_results.Record("UpdateNfcData", Manager().UpdateNfcData());
}

void Host::Listen(bool on) {
    m_listening = on;
    Manager().RegisterListener(on ? &Host::OnEvent : nullptr);
}

void Host::Stop() {
    Manager();
    m_manager.reset();
}

void Host::End() {
    if (m_connected && m_manager != nullptr) {
        m_manager->BtDisconnect(m_stage.KeyboardAddress());
    }
    m_manager.reset();
}

}  // namespace lab
