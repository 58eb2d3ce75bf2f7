// The message that a host gives to the library for the tag.
#pragma once

#include <tagport/tagport_export.h>

#include <cstdint>
#include <string>

/// A plain value: URL, MAC address, random number, PC model and PC type. Copying copies all five.
///
/// It has no lock. The object given to NfcManager::Create is shared with the manager, which reads
/// and writes it too; so is the one given to WriteMessage when the tag could not be read. A host
/// that changes it while an operation of the manager runs must keep the two apart itself. Give one
/// object to one manager only: each keeps the newest number of its own image.
class TAGPORT_EXPORT NdefMessage {
  public:
    /// All five fields empty or zero.
    NdefMessage();
    /// Copies all five fields. Takes no lock: nobody may change `other` meanwhile.
    NdefMessage(const NdefMessage& other);
    /// As the copy.
    NdefMessage& operator=(const NdefMessage& other);
    ~NdefMessage();

    /// Fills the message for a PC type ('2', '5' or '8') from the file config\NfcUri.ini under the
    /// process's current directory, and clears MAC address and random number. The file must hold
    /// both URIs, whichever type is asked for. Without them nothing changes; for any other type
    /// the MAC address alone is cleared. Failures are logged; GetPcType shows whether it worked.
    void Init(char type);

    /// The URI without its scheme, 1 to 255 bytes. 0, or -1 with nothing stored. The tag takes at
    /// most 162 bytes: NfcManager refuses more, and WriteMessage with 163 to 252 makes the manager
    /// refuse everything that follows. The number is read back for a URI of 1 byte on PC type 2 and
    /// of 50 bytes on 5 and 8; with any other size other bytes pass for the number.
    int SetUrl(const std::string& url);
    /// The stored URI, without its scheme; empty before the first one. Always 0.
    int GetUrl(std::string& url);

    /// The MAC address, in the order in which it is on the tag. 0, or -1 with the field cleared for
    /// an array reference that refers to nothing.
    int SetMac(const std::uint8_t (&mac)[6]);
    /// The stored MAC address. 0, or -1 for an array reference that refers to nothing.
    int GetMac(std::uint8_t (&mac)[6]);

    /// The random number. 0, or -1 with the field cleared for an array reference that refers to
    /// nothing. Does not reach the tag by itself: see NfcManager::WriteRandNum. A number whose
    /// bytes 0, 1, 2 and 31 are all zero passes for none when it is read back, so that its write
    /// fails.
    int SetRandomNumber(const std::uint8_t (&number)[32]);
    /// The stored number. 0, or -1 for an array reference that refers to nothing.
    int GetRandomNumber(std::uint8_t (&number)[32]);

    /// The PC model. 0, or -1 with the field cleared for an array reference that refers to nothing.
    int SetModel(const std::uint8_t (&model)[4]);
    /// The stored model. 0, or -1 for an array reference that refers to nothing.
    int GetModel(std::uint8_t (&model)[4]);

    /// 2, 5 or 8 for a message that a manager takes; any value is stored. Always 0.
    int SetPcType(const std::uint8_t& type);
    /// The stored PC type. Always 0.
    int GetPcType(std::uint8_t& type);

  private:
    bool GetUriInfo(std::string& orvaneUri, std::string& velmoUri);

    std::string m_url;
    std::uint8_t m_macAddr[6];
    std::uint8_t m_randomNumber[32];
    std::uint8_t m_pcModel[4];
    std::uint8_t m_pcType = 0;
};
