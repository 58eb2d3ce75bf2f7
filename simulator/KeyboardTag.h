// The tag of a keyboard, and the frames that both kinds of keyboard understand: an image to store,
// and a request for 32 bytes of it. A model without threads. KeyboardMcu (HID) and
// BluetoothKeyboard transport the frames and the answers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "simulator/TagMemory.h"

namespace simulator {

constexpr std::size_t kMaxKeyboardImage = 888;
constexpr unsigned kFirstImageRegister = 16;
constexpr std::size_t kNumberSize = 32;
constexpr Micros kDefaultAnswerLatency = 4 * kMilli;

// The first two bytes of a frame to the keyboard, and the types of its messages to the PC.
constexpr std::uint8_t kFrameMark = 0x2E;
constexpr std::uint8_t kFrameWrite = 0x00;
constexpr std::uint8_t kFrameRequest = 0x01;
constexpr std::uint8_t kTypeField = 0x02;
constexpr std::uint8_t kTypeNumber = 0x03;
constexpr std::uint8_t kFieldEnter[2] = {0x6E, 0xE6};
constexpr std::uint8_t kFieldLeave[2] = {0xE6, 0x6E};

class KeyboardTag : protected TagRadio {
  public:
    /// Gets the keyboard's messages. Each is to be delivered once `delay` has passed.
    using Sender = std::function<void(Micros delay, Bytes message)>;

    void OnSend(Sender send) { m_send = std::move(send); }

    // The phone's side.
    TagRadio& Radio() { return *this; }

    // The back door.

    /// The image as last written, empty before the first.
    const Bytes& Image() const { return m_image; }
    Bytes Memory(unsigned reg, std::size_t count) const { return m_memory.Read(reg, count); }
    void SetMemory(unsigned reg, const Bytes& bytes) { m_memory.Write(reg, bytes); }
    std::size_t ImagesStored() const { return m_imagesStored; }
    std::size_t NumbersAsked() const { return m_numbersAsked; }
    /// The reasons of all refusals, in order.
    const std::vector<std::string>& Refusals() const { return m_refusals; }
    void SetAnswerLatency(Micros latency) { m_answerLatency = latency; }
    /// False: requests for the number are accepted and not answered.
    void SetAnswers(bool answers) { m_answers = answers; }
    /// Sends a field report, as for a phone that enters or leaves.
    void SendField(bool enter, Micros delay = 0);
    /// Sends a number report.
    void SendNumber(const Bytes& number, Micros delay = 0);
    /// Sends bytes unchanged, also malformed ones.
    void SendRaw(Bytes message, Micros delay = 0);

  protected:
    KeyboardTag();
    /// Takes one whole frame, or records why it is refused.
    void TakeFrame(const Bytes& frame);
    void Refuse(const std::string& reason) { m_refusals.push_back(reason); }
    /// Wraps a message of `type` as this keyboard sends it.
    virtual Bytes Wrap(std::uint8_t type, const Bytes& payload) const = 0;

  private:
    bool Enter(Micros now) override;
    void Leave(Micros now) override;
    bool Select(Micros /*now*/) override { return true; }
    std::optional<PageQuad> ReadPages(Micros now, unsigned page) override;

    TagMemory m_memory;
    Bytes m_image;
    bool m_inField = false;
    Sender m_send;
    Micros m_answerLatency = kDefaultAnswerLatency;
    bool m_answers = true;
    std::size_t m_imagesStored = 0;
    std::size_t m_numbersAsked = 0;
    std::vector<std::string> m_refusals;
};

}  // namespace simulator
