// Stores images and answers requests.
#include "simulator/KeyboardTag.h"

#include <algorithm>

namespace simulator {

namespace {

constexpr std::size_t kFrameHeadSize = 2;
constexpr std::size_t kRequestSize = 4;
// The last read of a phone may go beyond the biggest image.
constexpr std::size_t kMemorySize = kFirstImageRegister + kMaxKeyboardImage + kPageSize * 2;

}  // namespace

KeyboardTag::KeyboardTag() : m_memory(kMemorySize) {}

Bytes KeyboardTag::Memory(unsigned reg, std::size_t count) const {
    Bytes bytes(count);
    for (std::size_t i = 0; i < count && reg + i < m_memory.size(); ++i) {
        bytes[i] = m_memory[reg + i];
    }
    return bytes;
}

void KeyboardTag::SetMemory(unsigned reg, const Bytes& bytes) {
    for (std::size_t i = 0; i < bytes.size() && reg + i < m_memory.size(); ++i) {
        m_memory[reg + i] = bytes[i];
    }
}

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
        SetMemory(kFirstImageRegister, m_image);
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
        SendNumber(Memory(reg, kNumberSize), m_answerLatency);
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

bool KeyboardTag::RadioSide::Enter(Micros /*now*/) {
    if (!m_inField) {
        m_inField = true;
        m_tag.SendField(true);
    }
    return true;
}

void KeyboardTag::RadioSide::Leave(Micros /*now*/) {
    if (m_inField) {
        m_inField = false;
        m_tag.SendField(false);
    }
}

bool KeyboardTag::RadioSide::Select(Micros /*now*/) {
    return true;
}

std::optional<PageQuad> KeyboardTag::RadioSide::ReadPages(Micros /*now*/, unsigned page) {
    const std::size_t reg = page * kPageSize;
    if (reg >= kFirstImageRegister + kMaxKeyboardImage) {
        return std::nullopt;
    }
    PageQuad quad{};
    const Bytes bytes = m_tag.Memory(static_cast<unsigned>(reg), quad.size());
    std::copy(bytes.begin(), bytes.end(), quad.begin());
    return quad;
}

bool KeyboardTag::RadioSide::WritePage(Micros /*now*/, unsigned /*page*/, const Page& /*bytes*/) {
    return false;  // only the PC writes images
}

}  // namespace simulator
