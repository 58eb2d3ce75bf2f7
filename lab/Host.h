// The host application of a run: creates managers, keeps the message that each is to have on the
// tag, and calls the library.
#pragma once

#include <tagport/NfcManager.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <random>
#include <string>

#include "lab/Pc.h"
#include "lab/ReceivedEvents.h"
#include "lab/RunResults.h"
#include "lab/Script.h"

namespace lab {

/// One per process, because the listener is a plain function. Never destroyed, like the PC.
/// Every operation records its result; an operation that needs a manager throws WrongCall when
/// there is none.
class Host {
  public:
    Host(Pc& pc, Recorder& recorder, RunResults& results, std::uint64_t seed);

    // `manager` is a number from 1 to kMostManagers. Each of them has a message of its own. Every
    // operation may be called from any thread.

    /// Fills the messages from the configuration, then starts manager 1.
    void Start(int pcType);
    /// Sets fields of the message, creates the manager, opens the tag and writes to it; stops at
    /// the first step that fails. A manager that was there is released.
    void StartManager(unsigned manager, const Fields& fields);
    /// Only creates it; false when that failed.
    bool Create(unsigned manager, const Fields& fields);
    /// DeviceInit and Connect, each where the PC needs it; false when DeviceInit failed.
    bool Open(unsigned manager);
    /// Connects or disconnects each keyboard that the PC has.
    void Connect(unsigned manager, bool on);
    /// Writes a random number to the tag: these 32 bytes, or a new one for an empty string.
    void Renew(unsigned manager, const std::string& bytes);
    /// Sets fields of the message and writes a copy of it.
    void Write(unsigned manager, const Fields& fields);
    void ReadNumber(unsigned manager);
    /// Reads into the message that the manager shares with the host, or into another one.
    void ReadMessage(unsigned manager, bool own);
    /// Sets fields of the message that the manager shares with the host, and updates the tag.
    void Update(unsigned manager, const Fields& fields);
    void DeviceInit(unsigned manager);
    /// With the fields of the script's "listener": what the listener does in each event.
    void Listen(unsigned manager, bool on, const Fields& fields);
    /// Releases the manager.
    void Stop(unsigned manager);
    /// Closes the Bluetooth connection and releases the managers that are there.
    void End();

    bool Listening() const { return m_listening; }
    ReceivedEvents& Events() { return m_events; }
    const ReceivedEvents& Events() const { return m_events; }

  private:
    struct Slot {
        NdefMessage content;               // the wanted content of the tag
        std::shared_ptr<NdefMessage> own;  // the message that Create was given
        std::shared_ptr<NfcManager> manager;
    };
    struct ListenerHabits {
        unsigned manager = 1;    // that the listener calls
        std::int64_t pause = 0;  // milliseconds
        bool reads = false;
        bool renews = false;
    };

    static void OnEvent(int event, const std::uint8_t (&number)[32], int route);
    void ActInListener();

    Slot& At(unsigned manager) { return m_slots.at(manager - 1); }  // under m_mutex
    std::shared_ptr<NfcManager> Manager(unsigned manager);          // WrongCall when there is none
    std::shared_ptr<NdefMessage> Own(unsigned manager);
    /// Sets fields of a manager's content and returns a copy of it.
    std::shared_ptr<NdefMessage> Content(unsigned manager, const Fields& fields);
    void Record(unsigned manager, const std::string& operation, const Json& result,
                Json more = Json::object());
    void FillRandom(std::uint8_t (&number)[32]);

    Pc& m_pc;
    Recorder& m_recorder;
    RunResults& m_results;
    ReceivedEvents m_events;
    std::mutex m_mutex;  // for what follows; never held over a call of the library
    std::mt19937_64 m_random;
    std::array<Slot, kMostManagers> m_slots;
    ListenerHabits m_habits;
    std::uint8_t m_listenerByte = 0;  // of the last number that a listener gave
    std::atomic<bool> m_listening{true};
    std::atomic<bool> m_connected{false};  // the Bluetooth keyboard
};

}  // namespace lab
