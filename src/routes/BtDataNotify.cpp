#include "routes/BtDataNotify.h"

#include "diagnostics/Log.h"
#include "events/Listener.h"
#include "routes/BleDelivery.h"
#include "routes/KeyboardFrame.h"
#include "routes/Keyboards.h"

namespace {

constexpr std::size_t kShortestNotification = 4;
constexpr std::size_t kNumberOffset = kBleTypeOffset + kAfterType;
constexpr std::size_t kNumberNotification = kNumberOffset + kNumberSize;

void LogNotValid() {
    LogWarnFun("[NFC] not valid data ");
}

// A number that would reach beyond the value's end is refused like any other malformed value.
void TakeNumber(const std::vector<std::uint8_t>& value) {
    if (value.size() < kNumberNotification) {
        LogErrorFun("[NFC] value length is err");
        return;
    }
    const std::uint8_t* const number = value.data() + kNumberOffset;
    g_btRandNumber.value.Set(number);
    g_btRandEvent.value.Signal();
    LogWarnFun("[NFC] randNumber read: %02X%02X%02X%02X%02X%02X%02X%02X", number[0], number[1],
               number[2], number[3], number[4], number[5], number[kNumberSize - 2],
               number[kNumberSize - 1]);
}

}  // namespace

void BtDataNotify::OnNotify(const std::vector<std::uint8_t>& value) {
    if (!BleDelivery::Get().IsCurrentSink(this)) {
        return;
    }
    LogWarnFun("[NFC] start size:");
    if (value.size() < kShortestNotification) {
        LogErrorFun("[NFC] value length is err");
        return;
    }
    if (value[kFrameMarkOffset] != kFrameMark) {
        LogNotValid();
        return;
    }
    switch (ClassifyReport(value.data() + kBleTypeOffset)) {
        case KeyboardReport::kEntered:
            BleDelivery::Get().Add(this, kEventEntered);
            break;
        case KeyboardReport::kLeft:
            BleDelivery::Get().Add(this, kEventLeft);
            break;
        case KeyboardReport::kNumber:
            TakeNumber(value);
            break;
        case KeyboardReport::kUnknownCode:
        case KeyboardReport::kUnknownType:
            LogNotValid();
            break;
    }
}
