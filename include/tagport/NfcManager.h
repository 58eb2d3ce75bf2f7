// The main class of the library: keeps a passive NFC tag filled with a message and reports phones.
#pragma once

#include <tagport/NdefMessage.h>
#include <tagport/NfcListener.h>
#include <tagport/tagport_export.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>

class ManagedImage;
class NfcData;
class NfcProxy;

/// One tag image and one message. The peripheral, its threads and the listener belong to the
/// process: all managers share them.
///
/// When the last pointer to one manager goes, the threads stop for every other manager as well, and
/// transfers fail until the next DeviceInit. A Create that fails does the same, since it ends the
/// manager that it made. After that DeviceInit the HID keyboard reports phones again; the I2C and
/// USB routes report them from the next WriteMessage on. A DeviceInit also silences a Fanli chip's
/// radio: its phones come back with the next WriteMessage.
///
/// Every operation may be called from any thread, also from a listener within the limits that
/// NfcListener.h gives. Failures are reported by result and in the log; only the standard library's
/// own exceptions (a mutex that fails, memory exhaustion) pass through.
///
/// Operations wait for each other. A read waits for a write that is under way, and both wait for a
/// device start: 51 s at worst, on a driver that never ends a request.
///
/// The usual order: NdefMessage::Init and setters, Create, DeviceInit, WriteMessage, then anything.
class TAGPORT_EXPORT NfcManager {
  public:
    /// A manager whose tag image holds the message, or an empty pointer: no message, a PC type
    /// other than 2, 5 and 8, or a URL of more than 162 bytes. The listener becomes the process's
    /// listener in every case. Touches no device. A refused Create disables the managers that work:
    /// they need DeviceInit and WriteMessage again.
    static std::shared_ptr<NfcManager> Create(std::shared_ptr<NdefMessage> message,
                                              NfcListener listener);

    /// A bare manager, on which nearly every operation fails. Hosts use Create.
    explicit NfcManager(std::shared_ptr<NdefMessage> message);

    /// Shares image, peripheral and message with the original.
    NfcManager(const NfcManager& other);
    /// As the copy. What this manager held before is released as by the destructor; an operation
    /// that runs meanwhile ends on it.
    NfcManager& operator=(const NfcManager& other);
    /// Stops the event threads when no other manager shares the peripheral of this one. Waits for
    /// nobody.
    ~NfcManager();

    /// Finds and opens the tag: I2C driver, USB driver, HID keyboard, in this order. Up to three
    /// attempts with 300 ms after each failure; on a driver that never ends a request up to 51 s.
    bool DeviceInit();

    /// Writes the message to the tag on every active route, reads the number back, starts the
    /// event threads and switches the radio on. 0 when the content is on the tag and both threads
    /// exist, else -1; on a driver that never ends a request up to 20 s, 22 s on a Fanli chip.
    ///
    /// Give a random number: without one the reading back fails, and with it the result.
    ///
    /// Give the URL always. On an FM11N chip on I2C the tag is read first, and an empty URL keeps
    /// the one on the tag; where that reading fails, the message is written without URL and the
    /// result is still 0. On every other route an empty URL keeps the one of the manager's message.
    ///
    /// A URL of 163 to 252 bytes is refused but stays in the image: the manager then refuses every
    /// message and number, and only a new manager helps. A tag that holds such a URL has the same
    /// effect where it is read first; UpdateNfcData on a new manager overwrites it.
    ///
    /// The fields are copied into the manager's message; the PC type is not. Where the reading
    /// fails, the given object becomes the manager's message itself, PC type and all, and is shared
    /// from then on.
    int WriteMessage(std::shared_ptr<NdefMessage> message);

    /// Reads the tag into `target` (all but its PC type). 0, or -1 with `target` unchanged unless
    /// only the last step, taking over the manager's own message, failed. I2C and USB routes only.
    int ReadMessage(const std::shared_ptr<NdefMessage>& target);

    /// Writes the manager's message to the tag and reads the number back.
    bool UpdateNfcData();

    /// Renews the random number in the message, in the image and, on a thread of its own, on the
    /// tag. Returns without waiting for the tag: 0 when the number was taken over or is the
    /// message's already, else -1. An array reference that refers to nothing gives -1 and clears
    /// the number in the message.
    ///
    /// A failed write shows in the log alone, and the same number given again gives 0 without a
    /// write. So does a number after a -1 for an image with too long a URL, since the message keeps
    /// it. A -1 because no thread could be started changes nothing: give the number again.
    ///
    /// The thread outlives the manager where it must, but not the process: one that ends while the
    /// thread writes leaves a torn number. Wait 1 s for each number given, 20 s at worst. A thread
    /// whose manager's content is older than what another manager has written since writes nothing.
    int WriteRandNum(const std::uint8_t (&number)[32]);

    /// Reads the number from the tag. 0, or -1 also for an array reference that refers to nothing.
    /// With no route active 0, and `number` is untouched. On a PC that has the Bluetooth keyboard
    /// alone always 0, also when the keyboard did not answer.
    int ReadRandNum(std::uint8_t (&number)[32]);

    /// What a thread procedure of the system returns: 32 bits without a sign, which 64-bit Windows
    /// calls unsigned long.
    using ThreadResult = std::conditional_t<sizeof(unsigned long) == sizeof(std::uint32_t),
                                            unsigned long, std::uint32_t>;

    /// The procedure of the thread that WriteRandNum starts, as CreateThread takes it. The argument
    /// is a manager, which must live until the thread has ended. 0, or 0xFFFFFFFF on failure.
    static ThreadResult WriteRandThread(void* manager);

    /// Replaces the process's listener from the next event on. Null drops events with a log line.
    void RegisterListener(NfcListener listener);

    /// Connects the Bluetooth keyboard, which from then on takes part in every write and read. True
    /// when its notifications are subscribed as well. False when there is no client, the client
    /// refuses, or the subscription fails; after a failed subscription writes still reach the
    /// keyboard and BtDisconnect is needed. Waits for an image or number that is under way, and for
    /// deliveries of an earlier connection to end.
    bool BtConnect(std::uint64_t address);

    /// Ends the connection to this address. False when it is not the one that was connected last,
    /// or nothing is connected. Waits for an image or number that is under way, and for deliveries
    /// to end: after it has returned, no event of route 4 comes.
    bool BtDisconnect(std::uint64_t address);

    /// True from the moment at which the I2C route has been found.
    bool IsActivePC();

    /// Says to the library whether the HID keyboard's microcontroller can be written to. True, or
    /// false on a bare manager.
    bool SetMcuKbConnectStatus(bool status);

    /// Serialises the threads of WriteRandNum. Nothing else takes it.
    static std::mutex& m_staticWriteMutex;

  private:
    friend struct NfcManagerTestAccess;  // the tests' way to the private flows

    enum class NumberFrom { kHost, kTag };

    bool Init(NfcListener listener);
    bool SetContent(NumberFrom source);
    static bool SetMacAddr(NfcData& image, const std::uint8_t (&mac)[6]);
    static bool SetUrl(NfcData& image, const std::string& url);
    static bool SetRandomNumber(NfcData& image, const std::uint8_t (&number)[32]);
    static bool SetModel(NfcData& image, const std::uint8_t (&model)[4]);
    int ReadIntoMessage(const std::shared_ptr<NdefMessage>& target);
    bool UpdateTag();
    bool UpdateNfcContent();
    int LocalWriteRand();
    std::shared_ptr<NfcProxy> Proxy() const;

    std::shared_ptr<ManagedImage> m_nfcData;
    std::shared_ptr<NfcProxy> m_nfcProxy;
    std::shared_ptr<NdefMessage> m_ndefMessage;
};
