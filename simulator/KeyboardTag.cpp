// Stores images and answers requests.
#include "simulator/KeyboardTag.h"

#include <iterator>
#include <utility>

namespace simulator {

namespace {

constexpr std::size_t kFrameHeadSize = 2;
constexpr std::size_t kRequestSize = 4;
// The last read of a phone may go beyond the biggest image.
constexpr std::size_t kMemorySize = kFirstImageRegister + kMaxKeyboardImage + kPageSize * 2;

}  // namespace

KeyboardTag::KeyboardTag() : m_memory(kMemorySize) {}

void KeyboardTag::TakeFrame(const Bytes& frame) {
    if (frame.size() < kFrameHeadSize) {
        return Refuse("a frame of " + std::to_string(frame.size()) + " bytes has no head");
    }
    if (frame[0] != kFrameMark) {
        return Refuse("the frame's first byte is " + std::to_string(frame[0]) + ", not 46");
    }
    if (frame[1] == kFrameWrite) {
        const std::size_t size = frame.size() - kFrameHeadSize;
        if (size > kMaxKeyboardImage) {
            return Refuse("an image of " + std::to_string(size) + " bytes is too long");
        }
        m_image.assign(frame.begin() + kFrameHeadSize, frame.end());
        m_memory.Write(kFirstImageRegister, m_image);
        ++m_imagesStored;
        return;
    }
    if (frame[1] != kFrameRequest) {
        return Refuse("the frame's direction is " + std::to_string(frame[1]));
    }
    if (frame.size() != kRequestSize) {
        return Refuse("a request has " + std::to_string(frame.size()) + " bytes, not 4");
    }
    const unsigned reg = frame[2] | (static_cast<unsigned>(frame[3]) << 8U);
    if (reg + kNumberSize > m_memory.size()) {
        return Refuse("register " + std::to_string(reg) + " lies beyond the memory");
    }
    ++m_numbersAsked;
    if (m_answers) {
        SendNumber(m_memory.Read(reg, kNumberSize), m_answerLatency);
    }
}

void KeyboardTag::SendField(bool enter, Micros delay) {
    const auto& code = enter ? kFieldEnter : kFieldLeave;
    SendRaw(Wrap(kTypeField, Bytes(std::begin(code), std::end(code))), delay);
}

void KeyboardTag::SendNumber(const Bytes& number, Micros delay) {
    SendRaw(Wrap(kTypeNumber, number), delay);
}

void KeyboardTag::SendRaw(Bytes message, Micros delay) {
    if (m_send) {
        m_send(delay, std::move(message));
    }
}

bool KeyboardTag::Enter(Micros /*now*/) {
    if (!std::exchange(m_inField, true)) {
        SendField(true);
    }
    return true;
}

void KeyboardTag::Leave(Micros /*now*/) {
    if (std::exchange(m_inField, false)) {
        SendField(false);
    }
}

std::optional<PageQuad> KeyboardTag::ReadPages(Micros /*now*/, unsigned page) {
    if (page * kPageSize >= kFirstImageRegister + kMaxKeyboardImage) {
        return std::nullopt;
    }
    return m_memory.ReadPages(page);
}

}  // namespace simulator
