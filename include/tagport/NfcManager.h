/// @file
/// The main class of the library: keeps a passive NFC tag filled with a message and reports phones.
#pragma once

#include <tagport/NdefMessage.h>
#include <tagport/NfcListener.h>
#include <tagport/tagport_export.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>

TAGPORT_STD_MEMBERS_BEGIN

class ManagedImage;
class NfcData;
class NfcProxy;

/// One tag image and one message. The peripheral, its threads and the listener belong to the
/// process: all managers share them.
///
/// **The usual order.** NdefMessage::Init and setters, Create, DeviceInit,
/// SetMcuKbConnectStatus(true), WriteMessage, then anything. The status matters to a HID keyboard
/// alone and does no harm elsewhere. For a Bluetooth keyboard call BtConnect before WriteMessage;
/// on a PC that has no other tag it takes the place of DeviceInit.
///
/// **Results.** An int is 0, or -1; a bool is true on success. Every failure has a line in the log,
/// with two exceptions: ReadMessage of an image without a URL, or into a null pointer; BtConnect
/// without a Bluetooth client, and the BtDisconnect after it. A null reference returns -1. A bare
/// manager fails wherever it needs image or peripheral. Only the standard library's own exceptions
/// pass through (a mutex that fails, memory exhaustion).
///
/// **Blocking.** Every operation may be called from any thread, also from a listener within the
/// limits of NfcListener. Operations on the tag run one at a time: each also blocks for the ones
/// before it, a connect or disconnect too. "Silent" is the time on a driver that no longer answers:
/// each transfer is given up after 2 s. "Slow" is the time on a driver that answers each request
/// just within these 2 s. A driver that is slow and fails in between can take seven times as long
/// as a slow one. A Bluetooth keyboard that does not answer adds 3 s to each reading of the number,
/// so 9 s to a WriteMessage. A table of all times is in reference.md.
///
/// **Losing the device.** Repeat WriteMessage when the PC resumes. When a device arrives, or a
/// WriteMessage has failed, repeat DeviceInit, SetMcuKbConnectStatus(true) and WriteMessage. A
/// driver that cancels its requests, as some do at a suspend, ends the reports of phones while
/// every operation goes on working: on I2C and USB until the next WriteMessage, on a HID keyboard
/// until the next DeviceInit. No call says so, so a host repeats WriteMessage from time to time.
///
/// **The end of a manager.** When the last pointer to one manager goes, the threads stop for every
/// other manager as well, and transfers fail until the next DeviceInit. A Create that fails does
/// the same, since it ends the manager that it made. After that DeviceInit the HID keyboard reports
/// phones again; the I2C and USB routes report them from the next WriteMessage on.
class TAGPORT_EXPORT NfcManager {
  public:
    /// Makes a manager whose tag image holds the message. Touches no device.
    /// Returns null for no message, a PC type other than 2, 5 and 8, or a URL over 162 bytes.
    /// Blocks for microseconds.
    /// Changes the process's listener and PC type. If it returns null, the listener has changed all
    /// the same, and the managers that work need DeviceInit and WriteMessage again.
    static std::shared_ptr<NfcManager> Create(std::shared_ptr<NdefMessage> message,
                                              NfcListener listener);

    /// Makes a bare manager, without image and peripheral. Hosts use Create.
    explicit NfcManager(std::shared_ptr<NdefMessage> message);

    /// Shares image, peripheral and message with the original.
    NfcManager(const NfcManager& other);
    /// As the copy. What this manager held before is released as by the destructor; a pending
    /// operation ends on it.
    NfcManager& operator=(const NfcManager& other);
    /// Stops the event threads if no other manager shares the peripheral of this one.
    /// Blocks for microseconds: it waits for no thread.
    ~NfcManager();

    /// Finds and opens the tag: I2C driver, USB driver or HID keyboard, the first that is there.
    /// Returns true when the device is open and its chip prepared, after three attempts at most.
    /// Blocks for 0.2 s, without a device 0.9 s; silent 51 s, slow 57 s.
    /// Changes the process's device. A failure closes it and stops the threads. A Fanli chip, and
    /// an FM11N chip with another mode byte, has its radio off until the next WriteMessage.
    bool DeviceInit();

    /// Writes the message to every active route, starts the event threads, switches the radio on.
    /// Returns 0 when the number has been read back from the tag and both threads exist, else -1.
    /// Blocks for 0.01 to 0.6 s; silent 21 s, on a Fanli chip 23 s; slow 67 s.
    /// Changes the tag and the manager's message; not the PC type.
    ///
    /// - Give a random number: without one the reading back fails, and so does the call.
    /// - Give the URL. An empty one keeps that of the tag on an FM11N chip on I2C, which is read
    ///   first, and that of the manager's message elsewhere. If this reading fails, the image is
    ///   written without a URL: -1 on a new tag, 0 where an older image lies there.
    /// - If this reading fails, the given object becomes the manager's message, PC type included,
    ///   and is shared from then on.
    /// - A URL of 163 to 252 bytes spoils the manager, which then refuses every message and number:
    ///   only a new one helps. A tag that holds such a URL does the same where it is read first.
    ///   UpdateNfcData on a new manager overwrites it.
    /// - With no active route nothing is sent, and -1 is returned. A HID keyboard is active from
    ///   SetMcuKbConnectStatus(true) on.
    int WriteMessage(std::shared_ptr<NdefMessage> message);

    /// Reads the tag into `target`, all but the PC type. I2C and USB only.
    /// Returns 0, or -1 on another route, for an image of others and for a failed transfer.
    /// Blocks for 0.2 to 0.8 s; silent 3 s, slow 41 s.
    /// Changes `target`; after -1 only if the last step failed, taking over the manager's message.
    int ReadMessage(const std::shared_ptr<NdefMessage>& target);

    /// Writes the manager's message to every active route, as WriteMessage does.
    /// Returns true when the number has been read back from the tag.
    /// Blocks for 0.01 to 0.6 s; silent 19 s, on a Fanli chip 23 s; slow 31 s.
    /// Changes the tag. Starts no thread and switches no radio on.
    bool UpdateNfcData();

    /// Renews the random number: in message and image at once, on the tag by a thread of its own.
    /// Returns 0 when the number was taken over or is the message's already, else -1.
    /// Blocks for microseconds; its thread needs the times of UpdateNfcData.
    /// Changes message, image and tag. A null reference clears the number in the message.
    ///
    /// - A write that fails later is only logged. Calling again with the same number then returns 0
    ///   and writes nothing. The same holds after a -1 caused by a URL that is too long: the
    ///   message has already taken the number. If no thread could be started, nothing has changed:
    ///   repeat it.
    /// - Each call holds a thread until its number is written. On a silent driver they add up: wait
    ///   for one number before you give the next, or use WriteMessage.
    /// - A process that exits while a thread writes leaves a torn number. Before it exits, wait 1 s
    ///   per number, on a silent driver 23 s.
    /// - If another manager has written since, the thread writes nothing.
    int WriteRandNum(const std::uint8_t (&number)[32]);

    /// Reads the number over every active route: Bluetooth, HID, chip. The last one's is returned.
    /// Returns 0, or -1. Always 0 where a Bluetooth keyboard is the only active route.
    /// Blocks for 0.01 to 0.2 s; silent 3 s, with Bluetooth 6 s; slow 9 s, with Bluetooth 12 s.
    /// Changes `number`. It stays as it was, with the result 0, without an active route, and if a
    /// Bluetooth keyboard alone does not answer.
    int ReadRandNum(std::uint8_t (&number)[32]);

    /// What a thread procedure of the system returns: 32 bits without a sign, which 64-bit Windows
    /// calls unsigned long.
    using ThreadResult = std::conditional_t<sizeof(unsigned long) == sizeof(std::uint32_t),
                                            unsigned long, std::uint32_t>;

    /// The procedure of the thread that WriteRandNum starts, as CreateThread takes it. The argument
    /// is a manager, which must live until the thread has ended.
    /// Returns 0, or 0xFFFFFFFF on failure.
    static ThreadResult WriteRandThread(void* manager);

    /// Replaces the process's listener, from the next event on.
    /// Returns nothing; a bare manager changes nothing.
    /// Blocks for microseconds: a call in progress goes on.
    /// Changes the listener. Null drops events with a line in the log.
    void RegisterListener(NfcListener listener);

    /// Connects a Bluetooth keyboard, which is an active route from then on.
    /// Returns true when its notifications are subscribed as well.
    /// Blocks as long as the client does, for other reads and writes, and for a running delivery.
    /// Changes the connection, also if only the subscription failed: writes then reach the
    /// keyboard, and BtDisconnect is needed.
    ///
    /// The address is that of the paired keyboard, its 48 bits in a number: on Windows
    /// BLUETOOTH_DEVICE_INFO::Address or BluetoothLEDevice::BluetoothAddress.
    ///
    /// There is one connection. Connecting a second address leaves the first one connected for
    /// good: disconnect it first. A keyboard out of range fails every write, also to the PC's own
    /// tag, until BtDisconnect. A number that the keyboard sends late or unasked answers the next
    /// request, and so on, until the next BtConnect.
    bool BtConnect(std::uint64_t address);

    /// Ends the connection to this address.
    /// Returns false when it is not the address connected last, or nothing is connected.
    /// Blocks as long as the client does, for other reads and writes, and for a running delivery.
    /// Changes the connection. No event of route 4 comes after it has returned.
    bool BtDisconnect(std::uint64_t address);

    /// Returns true from the moment at which the I2C route has been found. Blocks for microseconds.
    bool IsActivePC();

    /// Tells the library whether the HID keyboard's microcontroller can be written to.
    /// Returns true, or false on a bare manager.
    /// Blocks for microseconds.
    /// Changes one value of the process, which is false at first: the keyboard is then no active
    /// route, WriteMessage returns -1, and ReadRandNum 0 with its array untouched. Where a HID
    /// keyboard gives way to a driver, set it to false before the DeviceInit and leave it so:
    /// otherwise the keyboard's reports go into the chip.
    bool SetMcuKbConnectStatus(bool status);

    /// Serialises the threads of WriteRandNum; no other operation takes it. A host may hold it, and
    /// call every operation but WriteRandThread meanwhile. Numbers then reach the tag only after it
    /// is released, and each waits on a thread of its own.
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

TAGPORT_STD_MEMBERS_END
