// The host application of a run: creates a manager, keeps the message that it wants on the tag, and
// calls one operation of the library at a time.
#pragma once

#include <tagport/NfcManager.h>

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>

#include "lab/ReceivedEvents.h"
#include "lab/RunResults.h"
#include "lab/Stage.h"

namespace lab {

/// One per process, because the listener is a plain function. Never destroyed, like the stage.
/// Every operation records its result; an operation that needs a manager throws WrongCall when
/// there is none.
class Host {
  public:
    Host(Stage& stage, Recorder& recorder, RunResults& results, std::uint64_t seed);

    /// Fills the message from the configuration, then CreateManager.
    void Start(int pcType);
    /// Creates the manager, opens the tag and writes to it; stops at the first step that fails.
    void CreateManager();
    /// Connects or disconnects the keyboard. WrongCall on a route without one.
    void Connect(bool on);
    /// Writes a random number to the tag: these 32 bytes, or a new one for an empty string.
    void Renew(const std::string& bytes);
    /// Sets fields of the message, named as in the script, and writes the message.
    void Write(const std::map<std::string, std::string>& fields);
    void ReadNumber();
    void ReadMessage();
    void Update();
    void DeviceInit();
    void Listen(bool on);
    /// Releases the manager.
    void Stop();
    /// Closes the Bluetooth connection and releases the manager, if there is one.
    void End();

    bool Listening() const { return m_listening; }
    ReceivedEvents& Events() { return m_events; }
    const ReceivedEvents& Events() const { return m_events; }

  private:
    static void OnEvent(int event, const std::uint8_t (&number)[32], int route);

    NfcManager& Manager();
    std::shared_ptr<NdefMessage> Message() const;
    void FillRandom(std::uint8_t (&number)[32]);

    Stage& m_stage;
    Recorder& m_recorder;
    RunResults& m_results;
    std::mt19937_64 m_random;
    ReceivedEvents m_events;
    NdefMessage m_message;  // the wanted content of the tag; the manager gets copies
    std::shared_ptr<NfcManager> m_manager;
    bool m_listening = true;
    bool m_connected = false;  // the Bluetooth keyboard
};

}  // namespace lab
