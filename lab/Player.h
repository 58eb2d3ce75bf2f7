// The host of a run: makes a manager as any host does, plays a script on it and keeps count of what
// went wrong.
#pragma once

#include <tagport/NfcManager.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>

#include "lab/EventBook.h"
#include "lab/Recorder.h"
#include "lab/Script.h"
#include "lab/Stage.h"

namespace lab {

/// One to a process, since the listener is a plain function. Never destroyed, like the stage.
class Player {
  public:
    using Remark = std::function<void(const std::string& text)>;

    Player(Stage& stage, Recorder& recorder, std::uint64_t seed, Remark remark);

    /// Everything that can be said about the script before it is played.
    void Check(const Script& script);

    /// Fills the message from the configuration, makes the manager, opens the tag and writes to it.
    void Start(int pcType);
    void Play(const Script& script);
    /// Waits for phones that are still there, then lets the manager go.
    void End();

    /// Results and expectations that failed and were not expected to.
    unsigned Failures() const { return m_failures; }
    const EventBook& Events() const { return m_events; }

  private:
    static void Listen(int event, const std::uint8_t (&number)[32], int route);

    void PlayAll(const std::vector<Command>& commands);
    void Do(const Command& command);
    void Operate(const Command& command);
    bool Applies(const Command& command) const;
    NfcManager& Manager();

    void CreateManager();
    void Connect(bool on);
    void Tap(const Command& command);
    void AwaitLeave();
    void Renew(const Command& command);
    void Write(const Command& command);
    void ReadNumber();
    void ReadMessage();
    void ExpectEvent(const Command& command);
    void ExpectResult(const Command& command);

    void Told(const std::string& operation, bool done, Json result, Json more = Json::object());
    void Told(const std::string& operation, int result, Json more = Json::object());
    void Told(const std::string& operation, bool result, Json more = Json::object());
    void Missed(const Command& command, const std::string& problem);
    void Pause(std::int64_t milliseconds);
    std::shared_ptr<NdefMessage> Message() const;

    Stage& m_stage;
    Recorder& m_recorder;
    Remark m_remark;
    std::mt19937_64 m_random;
    EventBook m_events;
    NdefMessage m_message;  // what the host wants on the tag; the manager gets copies
    std::shared_ptr<NfcManager> m_manager;
    std::string m_file;
    double m_begin = 0;         // of the script
    double m_lastPhoneEnd = 0;  // when the last phone that was sent will have gone
    bool m_listening = true;
    bool m_connected = false;  // the Bluetooth keyboard
    unsigned m_failures = 0;
    bool m_lastDone = true;
    bool m_lastExcused = true;  // the last result failed and counts as expected
    std::string m_lastOperation;
};

}  // namespace lab
