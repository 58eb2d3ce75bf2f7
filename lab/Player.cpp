#include "lab/Player.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <utility>

#include "lab/Failure.h"
#include "lab/Hex.h"

namespace lab {

namespace {

// The player that the listener tells. Written once, before the first manager is made; read by the
// library's threads.
std::atomic<Player*> g_player{nullptr};

constexpr int kLeft = 1;
constexpr int kEntered = 3;
constexpr std::int64_t kDefaultStay = 800;
constexpr std::int64_t kEnterBound = 1'000;  ///< for the event of a phone that has come
constexpr std::int64_t kLeaveBound = 8'500;  ///< above the longest watch of the library
constexpr std::uint8_t kInventedMac[6] = {0x02, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};

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

Player::Player(Stage& stage, Recorder& recorder, std::uint64_t seed, Remark remark)
    : m_stage(stage), m_recorder(recorder), m_remark(std::move(remark)), m_random(seed) {
    g_player = this;
}

void Player::Listen(int event, const std::uint8_t (&number)[32], int route) {
    Player& self = *g_player;
    Json object;
    object["kind"] = "event";
    object["event"] = event;
    object["route"] = route;
    object["number"] = ToHex(View(number, sizeof(number)));
    self.m_recorder.Add(self.m_stage.Thread(), self.m_stage.Now(), std::move(object));
    self.m_events.Add(event);
    self.m_stage.Happened();
}

// ---------------------------------------------------------------------------------------------
// What was asked and what came of it

void Player::Told(const std::string& operation, bool done, Json result, Json more) {
    Json object;
    object["kind"] = "result";
    object["operation"] = operation;
    object["result"] = std::move(result);
    object.update(more);
    m_recorder.Add(m_stage.Thread(), m_stage.Now(), std::move(object));
    m_lastDone = done;
    m_lastExcused = done;
    m_lastOperation = operation;
    m_failures += done ? 0 : 1;
}

void Player::Told(const std::string& operation, int result, Json more) {
    Told(operation, result == 0, Json(result), std::move(more));
}

void Player::Told(const std::string& operation, bool result, Json more) {
    Told(operation, result, Json(result), std::move(more));
}

void Player::Missed(const Command& command, const std::string& problem) {
    ++m_failures;
    std::fflush(stdout);
    std::fprintf(stderr, "%s:%zu: %s: %s\n", m_file.c_str(), command.line, command.text.c_str(),
                 problem.c_str());
}

void Player::ExpectEvent(const Command& command) {
    const int event = static_cast<int>(*command.number);
    m_stage.WaitFor([this, event] { return m_events.Has(event); }, command.within,
                    "an expected event");
    const bool came = m_events.Take(event);
    Json object;
    object["kind"] = "result";
    object["operation"] = "expect event " + std::to_string(event);
    object["result"] = came;
    m_recorder.Add(m_stage.Thread(), m_stage.Now(), std::move(object));
    if (!came) {
        Missed(command, "none came");
    }
}

void Player::ExpectResult(const Command& command) {
    if (m_lastDone == command.on) {
        m_failures -= m_lastExcused ? 0 : 1;
        m_lastExcused = true;
        return;
    }
    Missed(command, m_lastOperation.empty()
                        ? "nothing has been asked yet"
                        : m_lastOperation + (m_lastDone ? " worked" : " failed"));
}

// ---------------------------------------------------------------------------------------------
// The manager

std::shared_ptr<NdefMessage> Player::Message() const {
    return std::make_shared<NdefMessage>(m_message);
}

NfcManager& Player::Manager() {
    if (m_manager == nullptr) {
        throw WrongCall("there is no manager: \"start\" would be right before it");
    }
    return *m_manager;
}

void Player::Start(int pcType) {
    m_message.Init(static_cast<char>('0' + pcType));
    std::uint8_t type = 0;
    m_message.GetPcType(type);
    Told("Init", type == pcType);
    if (type != pcType) {
        return;
    }
    m_message.SetMac(kInventedMac);
    Number number;
    for (std::uint8_t& byte : number) {
        byte = static_cast<std::uint8_t>(m_random());
    }
    m_message.SetRandomNumber(number);
    CreateManager();
}

void Player::CreateManager() {
    m_manager = NfcManager::Create(Message(), m_listening ? &Player::Listen : nullptr);
    Told("Create", m_manager != nullptr);
    if (m_manager == nullptr) {
        return;
    }
    // A PC with nothing but a Bluetooth keyboard has no tag that DeviceInit could find.
    if (m_stage.Route() != "ble") {
        Told("DeviceInit", m_manager->DeviceInit());
        if (!m_lastDone) {
            return;
        }
    }
    if (m_stage.Route() == "ble" || m_stage.HasKeyboardController()) {
        Connect(true);
    }
    Told("WriteMessage", m_manager->WriteMessage(Message()));
}

void Player::Connect(bool on) {
    if (m_stage.Route() == "ble") {
        const std::uint64_t address = m_stage.KeyboardAddress();
        m_connected = on;
        Told(on ? "BtConnect" : "BtDisconnect",
             on ? Manager().BtConnect(address) : Manager().BtDisconnect(address));
    } else if (m_stage.HasKeyboardController()) {
        Told("SetMcuKbConnectStatus", Manager().SetMcuKbConnectStatus(on));
    } else {
        throw WrongCall("nothing can be connected on the " + m_stage.Route() +
                        " route: \"on hid,ble\" in front would be right");
    }
}

void Player::Renew(const Command& command) {
    Number number;
    if (command.argument.empty()) {
        for (std::uint8_t& byte : number) {
            byte = static_cast<std::uint8_t>(m_random());
        }
    } else {
        std::memcpy(number, command.argument.data(), sizeof(number));
    }
    const int result = Manager().WriteRandNum(number);
    if (result == 0) {
        m_message.SetRandomNumber(number);
    }
    Told("WriteRandNum", result, {{"number", ToHex(View(number, sizeof(number)))}});
}

void Player::Write(const Command& command) {
    for (const auto& [name, value] : command.fields) {
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
    Told("WriteMessage", Manager().WriteMessage(Message()));
}

void Player::ReadNumber() {
    Number number = {};
    const int result = Manager().ReadRandNum(number);
    Told("ReadRandNum", result,
         result == 0 ? Json{{"number", ToHex(View(number, sizeof(number)))}} : Json::object());
}

void Player::ReadMessage() {
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
    Told("ReadMessage", result, std::move(more));
}

// ---------------------------------------------------------------------------------------------
// The script

void Player::Pause(std::int64_t milliseconds) {
    if (milliseconds > 0) {
        m_stage.WaitFor([] { return false; }, milliseconds, "the script's next line");
    }
}

void Player::Tap(const Command& command) {
    const std::int64_t stay = command.number.value_or(kDefaultStay);
    const std::int64_t in = command.in.value_or(0);
    m_events.Mark();
    m_lastPhoneEnd = std::max(m_lastPhoneEnd,
                              m_stage.Now() + static_cast<double>(in) + static_cast<double>(stay));
    m_stage.Tap(in, stay);
    if (!command.in) {
        Pause(stay);
        AwaitLeave();
    }
}

void Player::AwaitLeave() {
    if (!m_listening) {
        return;
    }
    if (m_stage.WaitFor([this] { return m_events.Has(kEntered); }, kEnterBound,
                        "the event of a phone")) {
        m_stage.WaitFor([this] { return m_events.Has(kLeft); }, kLeaveBound,
                        "the event of a leave");
    }
}

bool Player::Applies(const Command& command) const {
    const auto named = [&](const std::string& name) {
        return std::find(command.only.begin(), command.only.end(), name) != command.only.end();
    };
    return command.only.empty() || named(m_stage.Route()) || named(m_stage.Chip());
}

void Player::Do(const Command& command) {
    if (command.at) {
        const double due = m_begin + static_cast<double>(*command.at);
        Pause(static_cast<std::int64_t>(due - m_stage.Now()));
    }
    m_remark(command.text);
    const std::int64_t in = command.in.value_or(0);
    switch (command.verb) {
        case Verb::kWait:
            Pause(*command.number);
            break;
        case Verb::kTap:
            Tap(command);
            break;
        case Verb::kEnter:
            m_events.Mark();
            m_stage.Enter(in);
            break;
        case Verb::kLeave:
            m_stage.Leave(in);
            break;
        case Verb::kChipStatus:
            m_stage.ChipStatus(in, static_cast<std::uint8_t>(*command.number));
            break;
        case Verb::kUnplug:
            m_stage.Unplug();
            break;
        case Verb::kPlug:
            m_stage.Plug();
            break;
        case Verb::kFault:
            m_stage.Fault(command.argument, true);
            break;
        case Verb::kRepeat:
            for (std::int64_t turn = 0; turn < *command.number; ++turn) {
                PlayAll(command.body);
            }
            break;
        case Verb::kExpectEvent:
            ExpectEvent(command);
            break;
        case Verb::kExpectResult:
            ExpectResult(command);
            break;
        default:
            Operate(command);
            break;
    }
}

void Player::Operate(const Command& command) {
    switch (command.verb) {
        case Verb::kRenew:
            Renew(command);
            break;
        case Verb::kReadNumber:
            ReadNumber();
            break;
        case Verb::kReadMessage:
            ReadMessage();
            break;
        case Verb::kWrite:
            Write(command);
            break;
        case Verb::kUpdate:
            Told("UpdateNfcData", Manager().UpdateNfcData());
            break;
        case Verb::kInit:
            Told("DeviceInit", Manager().DeviceInit());
            break;
        case Verb::kConnect:
        case Verb::kDisconnect:
            Connect(command.verb == Verb::kConnect);
            break;
        case Verb::kListener:
            m_listening = command.on;
            Manager().RegisterListener(m_listening ? &Player::Listen : nullptr);
            break;
        case Verb::kStop:
            Manager();
            m_manager.reset();
            break;
        case Verb::kStart:
            CreateManager();
            break;
        default:
            break;
    }
}

void Player::PlayAll(const std::vector<Command>& commands) {
    for (const Command& command : commands) {
        if (!Applies(command)) {
            continue;
        }
        try {
            Do(command);
        } catch (const WrongCall& problem) {
            const std::string text = problem.what();
            if (text.rfind(m_file + ":", 0) == 0) {
                throw;  // an inner list has named its line
            }
            throw WrongCall(m_file + ":" + std::to_string(command.line) + ": " + command.text +
                            ": " + text);
        }
    }
}

void Player::Check(const Script& script) {
    const std::function<void(const std::vector<Command>&)> check =
        [&](const std::vector<Command>& commands) {
            for (const Command& command : commands) {
                check(command.body);
                if (command.verb != Verb::kFault || !Applies(command)) {
                    continue;
                }
                try {
                    m_stage.Fault(command.argument, false);
                } catch (const WrongCall& problem) {
                    throw WrongCall(script.file + ":" + std::to_string(command.line) + ": fault " +
                                    problem.what());
                }
            }
        };
    check(script.commands);
}

void Player::Play(const Script& script) {
    m_file = script.file;
    m_begin = m_stage.Now();
    PlayAll(script.commands);
}

void Player::End() {
    Pause(static_cast<std::int64_t>(m_lastPhoneEnd - m_stage.Now()));
    if (m_listening && m_events.Count(kEntered) > m_events.Count(kLeft)) {
        m_stage.Leave(0);
        m_stage.WaitFor([this] { return m_events.Count(kLeft) >= m_events.Count(kEntered); },
                        kLeaveBound, "the event of the last leave");
    }
    if (m_connected && m_manager != nullptr) {
        m_manager->BtDisconnect(m_stage.KeyboardAddress());
    }
    m_manager.reset();
    m_stage.AwaitThreads();
}

}  // namespace lab
