// What a host does in each flow.
#include <gtest/gtest.h>

#include "tests/system/FaultSweep.h"

using simulator::PcRoute;

namespace testing_support {

namespace {

constexpr emulation::Micros kThreadTime = 10 * emulation::kMillisecond;  // until a new thread waits
constexpr emulation::Micros kWorkTime = 120 * emulation::kSecond;  // the longest number renewal
constexpr emulation::Micros kVisit = 1000 * emulation::kMillisecond;
constexpr emulation::Micros kVisitEnd = 12 * emulation::kSecond;  // later than every leave

// The lines of a success.
const std::string kUpdated = "UpdateNfcData success";
const std::string kThreadsReady = "NfcThreadCreate pass";
const std::string kReadTag = "NfcReadTag success!";
const std::string kRenewed = "LocalWriteRand ReadRandNum Successful";
const std::string kSubscribed = "[NFC] BleClientSubscribeNotify succ.";

void Created(PcWithHost& setup) {
    ASSERT_TRUE(setup.Create());
}

// The old image on the tag, and no thread yet.
void Opened(PcWithHost& setup) {
    // Begun anew, as a host may: the end of the first manager stops what it has started. Off I2C
    // nothing is read first, so the message's own content is what is written.
    for (int beginning = 0; beginning < 2; ++beginning) {
        ASSERT_TRUE(setup.Create(setup.NewMessage(kOld, kOld)));
        ASSERT_TRUE(setup.StartDevices(*setup.manager));
    }
    ASSERT_TRUE(setup.manager->UpdateNfcData());
}

bool Write(PcWithHost& setup, std::uint8_t content) {
    const bool worked = setup.manager->WriteMessage(setup.NewMessage(content, content)) == 0;
    PcWithHost::Pass(kThreadTime);
    return worked;
}

void Running(PcWithHost& setup) {
    Opened(setup);
    ASSERT_TRUE(Write(setup, kOld));
}

bool RenewNumber(PcWithHost& setup, std::uint8_t content) {
    const std::size_t threads = emulation::Live().threads;
    if (Renew(*setup.manager, NumberOf(content)) != 0) {
        EXPECT_EQ(NumberIn(*setup.message), NumberOf(kOld))
            << "a number that no thread writes was kept";
        return false;
    }
    // The fault may end an event thread too, so the number of threads alone is not enough.
    const auto ended = [&setup] {
        return setup.log.Has(kRenewed) || setup.log.Has("LocalWriteRand failed");
    };
    EXPECT_TRUE(emulation::WaitFor(ended, kWorkTime, "the number thread"));
    EXPECT_TRUE(PcWithHost::WaitForThreads(threads, kWorkTime));
    return setup.log.Has(kRenewed);
}

bool Read(PcWithHost& setup, std::uint8_t /*content*/) {
    auto target = std::make_shared<NdefMessage>();
    const bool worked = setup.manager->ReadMessage(target) == 0;
    std::string url;
    target->GetUrl(url);
    EXPECT_EQ(url, worked ? std::string(50, kOld) : "") << "in the target";
    return worked;
}

// As a host does it: the message is its own, and it changes it in place.
bool Update(PcWithHost& setup, std::uint8_t content) {
    *setup.message = *setup.NewMessage(content, content);
    return setup.manager->UpdateNfcData();
}

bool ReadNumber(PcWithHost& setup, std::uint8_t /*content*/) {
    Number number{};
    const bool worked =
        setup.manager->ReadRandNum(reinterpret_cast<std::uint8_t(&)[32]>(number)) == 0;
    const bool read = number == NumberOf(kOld);
    // Over Bluetooth a failed read does not fail the operation; then the array stays untouched.
    EXPECT_TRUE(!worked || read || (setup.Has(PcRoute::kBle) && number == Number{}));
    return worked && read;
}

bool StartDevice(PcWithHost& setup, std::uint8_t /*content*/) {
    const bool worked = setup.manager->DeviceInit();
    PcWithHost::Pass(kThreadTime);
    return worked;
}

bool Connect(PcWithHost& setup, std::uint8_t /*content*/) {
    const bool worked = setup.manager->BtConnect(simulator::kDefaultBleAddress);
    EXPECT_TRUE(!worked || setup.pc.bluetooth()->Subscribed());
    return worked;
}

bool Disconnect(PcWithHost& setup, std::uint8_t content) {
    return (content != kNewer || Connect(setup, content)) &&
           setup.manager->BtDisconnect(simulator::kDefaultBleAddress);
}

bool Visit(PcWithHost& setup, std::uint8_t content) {
    const bool written = content != kNewer || Write(setup, content);
    if (content == kNewer) {
        // An interrupt that came while nobody waited opens a visit too.
        PcWithHost::Pass(kVisitEnd);
    }
    TakeEvents();
    setup.pc.TapPhone(0, kVisit);
    PcWithHost::Pass(kVisitEnd);
    const std::vector<int> events = EventNumbers();
    for (std::size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(events[i], i % 2 == 0 ? 3 : 1) << "event " << i << " of " << events.size();
    }
    return written && !events.empty() && events.size() % 2 == 0;
}

bool Restart(PcWithHost& setup, std::uint8_t content) {
    if (setup.Has(PcRoute::kBle)) {
        Disconnect(setup, kOld);
    }
    setup.manager = nullptr;
    PcWithHost::Pass(kThreadTime);
    return setup.Create(setup.NewMessage(content, content)) && setup.StartDevices(*setup.manager) &&
           Write(setup, content);
}

const Peripheral kPeripherals[] = {
    {"i2c_fm11nt081", PcRoute::kI2c, "fm11nt081"},
    {"i2c_fm11nt082c", PcRoute::kI2c, "fm11nt082c"},
    {"i2c_fanli", PcRoute::kI2c, "fanli"},
    {"usb_fm11nt081", PcRoute::kUsb, "fm11nt081"},
    {"hid", PcRoute::kHid, "fm11nt081"},
    {"ble", PcRoute::kBle, "fm11nt081"},
    {"ble_inside", PcRoute::kBle, "fm11nt081", false, {5, 10, 2, true}},
    {"i2c_like_fm11n", PcRoute::kI2c, "like-fm11n", true},
    {"i2c_like_fanli", PcRoute::kI2c, "like-fanli", true},
    {"i2c_silent", PcRoute::kI2c, "silent", true},
    {"usb_fm11nt082c", PcRoute::kUsb, "fm11nt082c", true},
    {"usb_like_fm11n", PcRoute::kUsb, "like-fm11n", true},
};

// What docs/reference.md says of a driver that no longer answers.
constexpr emulation::Micros kLongestStart = 51 * emulation::kSecond;
constexpr emulation::Micros kLongestWrite = 20 * emulation::kSecond + kThreadTime;
constexpr emulation::Micros kLongestCheckedWrite = 22 * emulation::kSecond;
constexpr emulation::Micros kLongestRead = 3100 * emulation::kMillisecond;

}  // namespace

std::vector<Flow> Flows() {
    std::vector<Flow> flows;
    for (const Peripheral& on : kPeripherals) {
        const auto longest = on.chip == "fanli" ? kLongestCheckedWrite : kLongestWrite;
        const struct {
            bool applies;
            Flow flow;
        } rows[] = {
            {!on.IsBle(), {"start", Created, StartDevice, {}, kLongestStart, true}},
            {on.IsBle(), {"connect", Created, Connect, {kSubscribed}, longest, true}},
            {on.IsBle(), {"disconnect", Running, Disconnect, {}, longest}},
            {on.IsChip(), {"read", Opened, Read, {kReadTag}, kLongestRead}},
            {true, {"write", Opened, Write, {kUpdated, kThreadsReady}, longest}},
            {true, {"update", Opened, Update, {kUpdated}, longest}},
            {true, {"renew", Running, RenewNumber, {kRenewed}, longest}},
            {true, {"readnumber", Opened, ReadNumber, {}, kLongestRead}},
            {true, {"visit", Running, Visit, {}, longest}},
            {true, {"restart", Running, Restart, {kUpdated, kThreadsReady}, kLongestStart}}};
        for (const auto& [applies, flow] : rows) {
            if (applies && (flow.startsDevice || !on.onlyStarts)) {
                flows.push_back(flow);
                flows.back().name += std::string("_") + on.name;
                flows.back().on = on;
            }
        }
    }
    return flows;
}

}  // namespace testing_support
