// The kinds of routes and of chips that a PC can have, one row for each. The simulator's checks,
// the lab's options, scripts, judge, output and report take names and properties from here.
// Includes the standard library alone.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace simulator {

enum class PcRoute { kI2c, kUsb, kHid, kBle };

inline constexpr wchar_t kSpbDriverPath[] = L"\\\\.\\SPBNFCDRIVER";
inline constexpr wchar_t kUsbDriverPath[] = L"\\\\.\\KEYBOARDNFC";

/// What travels on a route: frames to a chip, or a keyboard's frames in reports or whole.
enum class BusFormat { kChip, kReports, kFrames };

struct RouteKind {
    PcRoute route;
    std::string_view name;   ///< in options, scripts and JSON
    std::string_view title;  ///< for people
    int number;              ///< as the listener gets it
    BusFormat format;
    std::wstring_view driver;  ///< the path of the device; empty: it is found in another way
    bool reportsBothEnds;      ///< of a visit, whatever the chip

    constexpr bool IsKeyboard() const { return format != BusFormat::kChip; }
    /// DeviceInit looks for it. A Bluetooth keyboard is connected instead.
    constexpr bool IsDevice() const { return format != BusFormat::kFrames; }
};

/// In the order in which DeviceInit looks for a device. A PC starts its routes in this order.
inline constexpr std::array<RouteKind, 4> kRouteKinds{{
    {PcRoute::kI2c, "i2c", "I2C", 1, BusFormat::kChip, kSpbDriverPath, false},
    {PcRoute::kUsb, "usb", "USB", 2, BusFormat::kChip, kUsbDriverPath, false},
    {PcRoute::kHid, "hid", "HID", 3, BusFormat::kReports, {}, true},
    {PcRoute::kBle, "ble", "Bluetooth", 4, BusFormat::kFrames, {}, true},
}};

/// Fanli chips have frames with four-byte heads and an interrupt status.
enum class ChipFrames { kFm11n, kFanli, kNone };

struct ChipKind {
    std::string_view name;
    ChipFrames frames;
    bool reportsVisits;    ///< else each interrupt is an event of its own
    bool reportsBothEnds;  ///< of a visit; else its end follows from missing interrupts

    /// Only the detection on I2C finds such a chip. On USB, without one, the library takes every
    /// chip for one with FM11N frames.
    constexpr bool NeedsDetection() const {
        return frames != ChipFrames::kFm11n && frames != ChipFrames::kNone;
    }
};

/// The first one is the default.
inline constexpr std::array<ChipKind, 6> kChipKinds{{
    {"fm11nt081", ChipFrames::kFm11n, true, false},
    {"fm11nt082c", ChipFrames::kFm11n, true, false},
    {"like-fm11n", ChipFrames::kFm11n, true, false},
    {"fanli", ChipFrames::kFanli, true, true},
    {"like-fanli", ChipFrames::kFanli, false, false},
    {"silent", ChipFrames::kNone, true, false},  // a bus address at which nothing answers
}};

/// The row with this name; null when there is none.
template <class Kinds>
constexpr auto FindKind(const Kinds& kinds, std::string_view name) -> decltype(kinds.data()) {
    for (const auto& kind : kinds) {
        if (kind.name == name) {
            return &kind;
        }
    }
    return nullptr;
}

/// The row of a route: the values of PcRoute have the order of the rows.
constexpr const RouteKind& KindOf(PcRoute route) {
    return kRouteKinds[static_cast<std::size_t>(route)];
}

/// The row of a route by the listener's number; null for a number that no route has.
constexpr const RouteKind* RouteByNumber(int number) {
    for (const RouteKind& kind : kRouteKinds) {
        if (kind.number == number) {
            return &kind;
        }
    }
    return nullptr;
}

}  // namespace simulator
