#include "tests/system/Flows.h"

#include <gtest/gtest.h>

#include <algorithm>

using simulator::PcRoute;

namespace testing_support {

namespace {

using Action = std::function<bool(Desk&)>;

// What stands on the tag before a flow, what the flow puts there, and what its repetition does.
constexpr std::uint8_t kOld = 0x11;
constexpr std::uint8_t kNew = 0x22;
constexpr std::uint8_t kNewer = 0x33;

constexpr hosted::Micros kThreadTime = 10 * hosted::kMillisecond;  // until a new thread waits
constexpr hosted::Micros kWorkTime = 120 * hosted::kSecond;        // the longest number renewal
constexpr hosted::Micros kVisit = 1000 * hosted::kMillisecond;
constexpr hosted::Micros kVisitEnd = 12 * hosted::kSecond;  // later than every leave

void Created(Desk& desk) {
    ASSERT_TRUE(desk.Create());
}

// The old image on the tag, and no thread yet.
void Opened(Desk& desk) {
    // Begun anew, as a host may: the end of the first manager stops what it has started. Off I2C
    // nothing is read first, so the message's own content is what is written.
    for (int beginning = 0; beginning < 2; ++beginning) {
        ASSERT_TRUE(desk.Create(desk.NewMessage(kOld, kOld)));
        ASSERT_TRUE(desk.StartDevices(*desk.manager));
    }
    ASSERT_TRUE(desk.manager->UpdateNfcData());
}

Action Write(std::uint8_t fill) {
    return [fill](Desk& desk) {
        const bool worked = desk.manager->WriteMessage(desk.NewMessage(fill, fill)) == 0;
        Desk::Pass(kThreadTime);
        return worked;
    };
}

void Running(Desk& desk) {
    Opened(desk);
    ASSERT_TRUE(Write(kOld)(desk));
}

Action RenewTo(std::uint8_t fill) {
    return [fill](Desk& desk) {
        const std::size_t threads = hosted::Live().threads;
        if (Renew(*desk.manager, NumberOf(fill)) != 0) {
            return false;
        }
        // The fault may end an event thread too, so the number of threads alone does not tell.
        const auto ended = [&desk] {
            return desk.log.Has("LocalWriteRand ReadRandNum Successful") ||
                   desk.log.Has("LocalWriteRand failed");
        };
        EXPECT_TRUE(hosted::WaitFor(ended, kWorkTime, "the number thread"));
        EXPECT_TRUE(Desk::WaitForThreads(threads, kWorkTime));
        return desk.log.Has("LocalWriteRand ReadRandNum Successful");
    };
}

bool Read(Desk& desk) {
    auto target = std::make_shared<NdefMessage>();
    const bool worked = desk.manager->ReadMessage(target) == 0;
    std::string url;
    target->GetUrl(url);
    EXPECT_EQ(url, worked ? std::string(50, kOld) : "") << "in the target";
    return worked;
}

// As a host does it: the message is its own, and it changes it in place.
Action Update(std::uint8_t fill) {
    return [fill](Desk& desk) {
        *desk.message = *desk.NewMessage(fill, fill);
        return desk.manager->UpdateNfcData();
    };
}

bool ReadNumber(Desk& desk) {
    std::uint8_t number[32] = {};
    const bool worked = desk.manager->ReadRandNum(number) == 0;
    const bool read = std::equal(std::begin(number), std::end(number), NumberOf(kOld).begin());
    // Over Bluetooth a failed read does not fail the operation; then the array stays untouched.
    EXPECT_TRUE(!worked || read || (desk.Has(PcRoute::kBle) && number[0] == 0));
    return worked && read;
}

bool StartOnly(Desk& desk) {
    const bool worked = desk.manager->DeviceInit();
    Desk::Pass(kThreadTime);
    return worked;
}

bool Connect(Desk& desk) {
    const bool worked = desk.manager->BtConnect(simulator::kDefaultBleAddress);
    EXPECT_TRUE(!worked || desk.pc.bluetooth()->Subscribed());
    return worked;
}

bool Disconnect(Desk& desk) {
    return desk.manager->BtDisconnect(simulator::kDefaultBleAddress);
}

bool DisconnectAgain(Desk& desk) {
    return Connect(desk) && Disconnect(desk);
}

bool Visit(Desk& desk) {
    TakeHeard();
    desk.pc.TapPhone(0, kVisit);
    Desk::Pass(kVisitEnd);
    const std::vector<int> events = EventsHeard();
    for (std::size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(events[i], i % 2 == 0 ? 3 : 1) << "event " << i << " of " << events.size();
    }
    return !events.empty() && events.size() % 2 == 0;
}

bool VisitAgain(Desk& desk) {
    const bool written = Write(kNewer)(desk);
    Desk::Pass(kVisitEnd);  // an interrupt that came while nobody waited opens a visit of its own
    return written && Visit(desk);
}

Action Restart(std::uint8_t fill) {
    return [fill](Desk& desk) {
        if (desk.Has(PcRoute::kBle)) {
            Disconnect(desk);
        }
        desk.manager = nullptr;
        Desk::Pass(kThreadTime);
        return desk.Create(desk.NewMessage(fill, fill)) && desk.StartDevices(*desk.manager) &&
               Write(fill)(desk);
    };
}

struct Peripheral {
    const char* name;
    PcRoute route;
    const char* chip;
    bool onlyStarts = false;  // differs from the others in its start alone
};
constexpr Peripheral kPeripherals[] = {
    {"i2c_fm11nt081", PcRoute::kI2c, "fm11nt081"},
    {"i2c_fm11nt082c", PcRoute::kI2c, "fm11nt082c"},
    {"i2c_fanli", PcRoute::kI2c, "fanli"},
    {"usb_fm11nt081", PcRoute::kUsb, "fm11nt081"},
    {"hid", PcRoute::kHid, "fm11nt081"},
    {"ble", PcRoute::kBle, "fm11nt081"},
    {"i2c_like_fm11n", PcRoute::kI2c, "like-fm11n", true},
    {"i2c_like_fanli", PcRoute::kI2c, "like-fanli", true},
    {"i2c_silent", PcRoute::kI2c, "silent", true},
    {"usb_fm11nt082c", PcRoute::kUsb, "fm11nt082c", true},
    {"usb_like_fm11n", PcRoute::kUsb, "like-fm11n", true},
};

// What docs/decisions.md tells of a driver that never ends a request.
constexpr hosted::Micros kLongestStart = 51 * hosted::kSecond;
constexpr hosted::Micros kLongestWrite = 20 * hosted::kSecond + kThreadTime;
constexpr hosted::Micros kLongestCheckedWrite = 22 * hosted::kSecond;

std::vector<Flow> MakeFlows() {
    const std::vector<std::string> written{"UpdateNfcData success", "NfcThreadCreate pass"};
    const std::vector<std::string> renewed{"LocalWriteRand ReadRandNum Successful"};
    std::vector<Flow> flows;
    for (const Peripheral& peripheral : kPeripherals) {
        const auto add = [&](Flow flow) -> Flow& {
            flow.name += std::string("_") + peripheral.name;
            flow.route = peripheral.route;
            flow.chip = peripheral.chip;
            return flows.emplace_back(std::move(flow));
        };
        const hosted::Micros longest =
            peripheral.chip == std::string("fanli") ? kLongestCheckedWrite : kLongestWrite;
        if (peripheral.route != PcRoute::kBle) {
            add({"start", Created, StartOnly, StartOnly, {}, kLongestStart, true}).isRefused =
                peripheral.chip == std::string("silent");
        } else {
            const std::string line = "[NFC] BleClientSubscribeNotify succ.";
            add({"connect", Created, Connect, Connect, {line}, longest, true});
            add({"disconnect", Running, Disconnect, DisconnectAgain, {}, longest});
        }
        if (peripheral.onlyStarts) {
            continue;
        }
        if (peripheral.route == PcRoute::kI2c || peripheral.route == PcRoute::kUsb) {
            add({"read", Opened, Read, Read, {"NfcReadTag success!"}, longest});
        }
        add({"write", Opened, Write(kNew), Write(kNewer), written, longest});
        add({"update", Opened, Update(kNew), Update(kNewer), {written[0]}, longest});
        add({"renew", Running, RenewTo(kNew), RenewTo(kNewer), renewed, longest});
        add({"readnumber", Opened, ReadNumber, ReadNumber, {}, longest});
        add({"visit", Running, Visit, VisitAgain, {}, longest});
        add({"restart", Running, Restart(kNew), Restart(kNewer), written, kLongestStart + longest});
    }
    return flows;
}

}  // namespace

const std::vector<Flow>& Flows() {
    static const std::vector<Flow> flows = MakeFlows();
    return flows;
}

}  // namespace testing_support
