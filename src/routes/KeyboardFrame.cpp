#include "routes/KeyboardFrame.h"

#include "platform/BoundedMemory.h"

namespace {

// Types of a report from the keyboard, and the two codes of a field report.
constexpr std::uint8_t kTypeField = 2;
constexpr std::uint8_t kTypeNumber = 3;
constexpr std::uint8_t kCodeA = 0x6E;
constexpr std::uint8_t kCodeB = 0xE6;

}  // namespace

std::uint8_t g_frameHead[kFrameHeadSize] = {};
std::uint8_t g_hidReportHead[kReportHeadSize] = {};

void PutFrameHead(std::uint8_t* frame, std::uint8_t direction) {
    g_frameHead[kFrameMarkOffset] = kFrameMark;
    g_frameHead[kFrameDirectionOffset] = direction;
    platform::memcpy_s(frame, kFrameHeadSize, g_frameHead, kFrameHeadSize);
}

void FillNumberRequest(NumberRequest& request, std::uint16_t regAddr) {
    PutFrameHead(request.data(), kDirectionRequest);
    request[kFrameHeadSize] = static_cast<std::uint8_t>(regAddr & 0xFF);
    request[kFrameHeadSize + 1] = static_cast<std::uint8_t>(regAddr >> 8);
}

KeyboardReport ClassifyReport(const std::uint8_t* fromType) {
    const std::uint8_t* const code = fromType + kAfterType;
    switch (*fromType) {
        case kTypeField:
            if (code[0] == kCodeA && code[1] == kCodeB) {
                return KeyboardReport::kEntered;
            }
            if (code[0] == kCodeB && code[1] == kCodeA) {
                return KeyboardReport::kLeft;
            }
            return KeyboardReport::kUnknownCode;
        case kTypeNumber:
            return KeyboardReport::kNumber;
        default:
            return KeyboardReport::kUnknownType;
    }
}
