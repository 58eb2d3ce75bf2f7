// Describes frames of the chips and of the keyboards in words.
#include "lab/BusMeaning.h"

#include <algorithm>
#include <array>

#include "lab/Hex.h"
#include "lab/Words.h"
#include "tagimage/ImageGeometry.h"

namespace lab {

namespace {

// Chip registers, as the log prints them in decimal.
struct Register {
    unsigned number;
    const char* name;
};
constexpr std::array<Register, 12> kRegisters{{
    {0, "identity"},
    {10, "bit lock, low byte"},
    {11, "bit lock, high byte"},
    {imageformat::NumberRegister(imageformat::kBlankUriSize), "random number of PC type 2"},
    {imageformat::NumberRegister(imageformat::kShownUriSize), "random number of PC types 5 and 8"},
    {904, "dynamic lock"},
    {908, "field detection mode"},
    {968, "dynamic lock of the FM11NT082C"},
    {4151, "sram configuration"},
    {4257, "radio control"},
    {0xF0F8, "result of the last tag write"},
    {0xF0F1, "radio on"},
}};
constexpr unsigned kRadioOff = 0xF0F2;
constexpr unsigned kRadioOn = 0xF0F1;
constexpr unsigned kLastImageRegister =
    imageformat::kFirstRegister + imageformat::kMaxImageSize - 1;

constexpr std::size_t kShortHead = 2;
constexpr std::size_t kExtendedHead = 4;
constexpr unsigned kWriteOperation = 0;
constexpr unsigned kStateOperation = 2;

// Keyboard reports and frames.
constexpr std::size_t kReportHead = 4;
constexpr std::size_t kInputTypeOffset = 5;
constexpr unsigned kFrameMark = 0x2E;
constexpr unsigned kImageFrame = 0;
constexpr unsigned kNumberFrame = 1;
constexpr unsigned kFieldType = 2;
constexpr unsigned kNumberType = 3;
constexpr unsigned kEnter = 0x6EE6;
constexpr unsigned kLeave = 0xE66E;

unsigned At(std::string_view bytes, std::size_t position) {
    return position < bytes.size() ? static_cast<unsigned char>(bytes[position]) : 0U;
}

unsigned Pair(std::string_view bytes, std::size_t high, std::size_t low) {
    return At(bytes, high) * 256 + At(bytes, low);
}

std::string Named(unsigned number) {
    const std::string text = "register " + std::to_string(number);
    for (const Register& one : kRegisters) {
        if (one.number == number) {
            return text + " (" + one.name + ")";
        }
    }
    if (number >= imageformat::kFirstRegister && number <= kLastImageRegister) {
        return text + " (image offset " + std::to_string(number - imageformat::kFirstRegister) +
               ")";
    }
    return text;
}

}  // namespace

std::string BusMeaning::OfWrite(std::string_view bytes) {
    if (m_format == BusFormat::kChip) {
        return ChipWrite(bytes);
    }
    if (m_format == BusFormat::kFrames) {
        return Frame(bytes);
    }
    const std::size_t length = At(bytes, 3);
    const std::size_t payload =
        length >= kReportHead ? std::min(length, bytes.size()) - kReportHead : 0;
    const std::string page = "report, page " + std::to_string(At(bytes, 2)) + " of " +
                             std::to_string(At(bytes, 1)) + ", " + Counted(payload, "byte");
    return At(bytes, 2) == 1 ? page + ": " + Frame(bytes.substr(kReportHead, payload)) : page;
}

std::string BusMeaning::OfRead(std::string_view bytes) const {
    if (m_format == BusFormat::kChip) {
        return ChipRead(bytes);
    }
    if (m_format == BusFormat::kReports) {
        return "report: " + FromKeyboard(bytes.substr(std::min(bytes.size(), kInputTypeOffset)));
    }
    return "notification: " + (At(bytes, 0) == kFrameMark && bytes.size() > 1
                                   ? FromKeyboard(bytes.substr(1))
                                   : std::string("without its mark"));
}

std::string BusMeaning::ChipWrite(std::string_view bytes) {
    if (bytes.size() < kShortHead) {
        return "too short for an address";
    }
    m_register = Pair(bytes, 0, 1);
    m_state = false;
    if (m_frames != ChipFrames::kFanli || bytes.size() < kExtendedHead) {
        return bytes.size() == kShortHead ? "address " + Named(m_register)
                                          : "write " + Counted(bytes.size() - kShortHead, "byte") +
                                                " to " + Named(m_register);
    }
    const unsigned operation = At(bytes, 2);
    if (operation == kWriteOperation) {
        if (m_register == kRadioOn || m_register == kRadioOff) {
            return m_register == kRadioOn ? "radio on" : "radio off";
        }
        return "write " + Counted(bytes.size() - kExtendedHead, "byte") + " to " +
               Named(m_register);
    }
    m_state = operation == kStateOperation;
    const std::string length = Counted(At(bytes, 3), "byte");
    return m_state ? "ask for " + length + " of state " + std::to_string(m_register)
                   : "ask for " + length + " of " + Named(m_register);
}

std::string BusMeaning::ChipRead(std::string_view bytes) const {
    if (m_state && m_register == 0 && !bytes.empty()) {
        return "interrupt status " + std::to_string(At(bytes, 0));
    }
    return Counted(bytes.size(), "byte") + " of " +
           (m_state ? "state " + std::to_string(m_register) : Named(m_register));
}

std::string BusMeaning::Frame(std::string_view frame) const {
    if (At(frame, 0) != kFrameMark || frame.size() < 2) {
        return "a frame without its mark";
    }
    if (At(frame, 1) == kImageFrame) {
        return "store an image";
    }
    if (At(frame, 1) == kNumberFrame) {
        return "ask for the number at " + Named(Pair(frame, 3, 2));
    }
    return "an unknown frame";
}

std::string BusMeaning::FromKeyboard(std::string_view message) const {
    if (At(message, 0) == kFieldType) {
        const unsigned code = Pair(message, 1, 2);
        return code == kEnter   ? "a phone entered the field"
               : code == kLeave ? "the phone has left"
                                : "a field report with an unknown code";
    }
    if (At(message, 0) == kNumberType) {
        return "the number " + ToHex(message.substr(1, imageformat::kNumberSize));
    }
    return "of an unknown type";
}

}  // namespace lab
