// The keyboard's frames, which travel in HID pages and in Bluetooth writes alike, and the field
// reports and numbers that come back. Built and taken apart here and nowhere else.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "events/NumberStore.h"
#include "routes/ContentLock.h"

// A frame: its mark, a direction byte, then the image or a register.
inline constexpr std::size_t kFrameMarkOffset = 0;
inline constexpr std::size_t kFrameDirectionOffset = 1;
inline constexpr std::uint8_t kFrameMark = 0x2E;
inline constexpr std::uint8_t kDirectionWrite = 0x00;
inline constexpr std::uint8_t kDirectionRequest = 0x01;

/// Longest image of a write frame, in bytes.
inline constexpr std::int32_t kLargestKeyboardImage = 888;

/// A number request: the head and the register, low byte first.
using NumberRequest = std::array<std::uint8_t, 4>;

// An outgoing 64-byte HID report: a head of report id, page count, page number and length, and up
// to 60 bytes of a frame. The length counts the head.
inline constexpr std::size_t kReportSize = 64;
inline constexpr std::size_t kReportIdOffset = 0;
inline constexpr std::size_t kPageCountOffset = 1;
inline constexpr std::size_t kPageNumberOffset = 2;
inline constexpr std::size_t kPageLengthOffset = 3;
inline constexpr std::uint8_t kOutgoingReportId = 5;
inline constexpr std::int32_t kPagePayload = 60;

// Heads of outgoing frames and reports, built up in place.
inline constexpr std::size_t kFrameHeadSize = 2;
inline constexpr std::size_t kReportHeadSize = 4;
extern std::uint8_t g_frameHead[kFrameHeadSize] TAGPORT_GUARDED_BY(ContentLock::m_mutex);
extern std::uint8_t g_hidReportHead[kReportHeadSize] TAGPORT_GUARDED_BY(ContentLock::m_mutex);

/// How long the keyboard is given to answer a number request.
inline constexpr std::uint32_t kAnswerTimeoutMs = 3000;

/// Puts `g_frameHead` with the given direction at the start of a frame.
void PutFrameHead(std::uint8_t* frame, std::uint8_t direction)
    TAGPORT_REQUIRES(ContentLock::m_mutex);

void FillNumberRequest(NumberRequest& request, std::uint16_t regAddr)
    TAGPORT_REQUIRES(ContentLock::m_mutex);

/// What the keyboard reports.
enum class KeyboardReport {
    kEntered,      ///< a phone entered the field
    kLeft,         ///< the phone has left
    kUnknownCode,  ///< a field report with another code
    kNumber,       ///< a number follows the type byte
    kUnknownType,
};

/// Looks at three bytes, from the type byte on.
KeyboardReport ClassifyReport(const std::uint8_t* fromType);

// Where the type byte stands, and what follows it.
inline constexpr std::size_t kHidTypeOffset = 5;
inline constexpr std::size_t kBleTypeOffset = 1;
inline constexpr std::size_t kAfterType = 1;
