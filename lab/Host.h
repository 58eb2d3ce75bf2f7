// The host of a run: makes a manager as any host does, keeps the message that it wants on the tag,
// and asks for one operation at a time.
#pragma once

#include <tagport/NfcManager.h>

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>

#include "lab/EventBook.h"
#include "lab/Outcomes.h"
#include "lab/Stage.h"

namespace lab {

/// One to a process, since the listener is a plain function. Never destroyed, like the stage. Every
/// operation tells its result to the outcomes; those that need a manager throw WrongCall where
/// there is none.
class Host {
  public:
    Host(Stage& stage, Recorder& recorder, Outcomes& outcomes, std::uint64_t seed);

    /// Fills the message from the configuration, then CreateManager.
    void Start(int pcType);
    /// Makes the manager, opens the tag and writes to it; ends at the first that fails.
    void CreateManager();
    /// The keyboard, where the route has one.
    void Connect(bool on);
    /// With these 32 bytes, or a number of its own for an empty string.
    void Renew(const std::string& bytes);
    /// Sets fields of the message, by the script's names, and writes it.
    void Write(const std::map<std::string, std::string>& fields);
    void ReadNumber();
    void ReadMessage();
    void Update();
    void DeviceInit();
    void Listen(bool on);
    /// Lets the manager go.
    void Stop();
    /// The same at the end of a run, where there may be none, its Bluetooth connection included.
    void End();

    bool Listening() const { return m_listening; }
    EventBook& Events() { return m_events; }
    const EventBook& Events() const { return m_events; }

  private:
    static void OnEvent(int event, const std::uint8_t (&number)[32], int route);

    NfcManager& Manager();
    std::shared_ptr<NdefMessage> Message() const;
    void Invent(std::uint8_t (&number)[32]);

    Stage& m_stage;
    Recorder& m_recorder;
    Outcomes& m_outcomes;
    std::mt19937_64 m_random;
    EventBook m_events;
    NdefMessage m_message;  // what the host wants on the tag; the manager gets copies
    std::shared_ptr<NfcManager> m_manager;
    bool m_listening = true;
    bool m_connected = false;  // the Bluetooth keyboard
};

}  // namespace lab
