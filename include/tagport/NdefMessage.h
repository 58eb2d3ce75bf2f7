/// @file
/// The message that a host gives to the library for the tag.
#pragma once

#include <tagport/tagport_export.h>

#include <cstdint>
#include <string>

TAGPORT_STD_MEMBERS_BEGIN

/// A plain value: URL, MAC address, random number, PC model and PC type. Copying copies all five.
///
/// **Results.** 0, or -1. A null reference returns -1; the setter then clears its field, the getter
/// changes nothing.
///
/// **Blocking.** None but Init, which reads a file. An object has no lock: while an operation of
/// the manager runs, nobody else may use the object that the manager holds. That is the one given
/// to Create, and the one given to a WriteMessage that could not read the tag. Give one object to
/// one manager only, because each manager keeps the newest number of its own image.
class TAGPORT_EXPORT NdefMessage {
  public:
    /// Makes a message whose five fields are empty or zero.
    NdefMessage();
    /// Copies all five fields.
    NdefMessage(const NdefMessage& other);
    /// Copies all five fields.
    NdefMessage& operator=(const NdefMessage& other);
    ~NdefMessage();

    /// Fills the message for a PC type, '2', '5' or '8', from config\NfcUri.ini under the process's
    /// current directory.
    /// Returns nothing: failures are logged, and GetPcType shows whether it worked. A message that
    /// has no type is refused by NfcManager::Create; SetUrl and SetPcType do without the file.
    /// Blocks for the reading of the file.
    /// Changes all five fields. The URL is `orvane_uri` of the section PC_URI for type 5,
    /// `velmo_uri` for 8, and one blank for 2. The model is 00 00 05 00 for type 5, 00 00 08 00 for
    /// 8, and zero for 2; MAC address and number become zero. Another type, or
    /// a URI of more than 255 bytes, clears the MAC address alone. Nothing changes unless the file
    /// has both URIs. A character that the thread's code page lacks becomes '?'.
    void Init(char type);

    /// Stores the URI without its scheme.
    /// Returns 0, or -1 for a size other than 1 to 255 bytes.
    ///
    /// The tag takes at most 162 bytes. NfcManager refuses more, and WriteMessage with 163 to 252
    /// spoils the manager. The number is read back for a URI of 1 byte on PC type 2, and of 50
    /// bytes on 5 and 8: with another size other bytes pass for the number.
    int SetUrl(const std::string& url);
    /// Copies the URI without its scheme, empty before the first one. Returns 0.
    int GetUrl(std::string& url);

    /// Stores the MAC address, in the order in which it is on the tag.
    int SetMac(const std::uint8_t (&mac)[6]);
    /// Copies the MAC address.
    int GetMac(std::uint8_t (&mac)[6]);

    /// Stores the random number. It does not reach the tag by itself: see NfcManager::WriteRandNum.
    /// Bytes 0, 1, 2 and 31 must not all be zero: such a number looks unwritten when it is read
    /// back, so that its write fails.
    int SetRandomNumber(const std::uint8_t (&number)[32]);
    /// Copies the random number.
    int GetRandomNumber(std::uint8_t (&number)[32]);

    /// Stores the PC model.
    int SetModel(const std::uint8_t (&model)[4]);
    /// Copies the PC model.
    int GetModel(std::uint8_t (&model)[4]);

    /// Stores the PC type, a number and no character: 5, where Init takes '5'. Any value is stored,
    /// although a manager takes 2, 5 and 8 only. The model stays as it is. Returns 0.
    int SetPcType(const std::uint8_t& type);
    /// Copies the PC type. Returns 0.
    int GetPcType(std::uint8_t& type);

  private:
    bool GetUriInfo(std::string& orvaneUri, std::string& velmoUri);

    std::string m_url;
    std::uint8_t m_macAddr[6];
    std::uint8_t m_randomNumber[32];
    std::uint8_t m_pcModel[4];
    std::uint8_t m_pcType = 0;
};

TAGPORT_STD_MEMBERS_END
