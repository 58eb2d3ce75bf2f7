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

std::shared_ptr<NdefMessage> MessageOf(Desk& desk, std::uint8_t fill) {
    auto message = desk.NewMessage(fill);
    std::string url;
    message->GetUrl(url);
    std::fill(url.begin(), url.end(), static_cast<char>('a' + fill % 26));
    message->SetUrl(url);
    const std::uint8_t mac[6] = {fill, fill, fill, fill, fill, fill};
    message->SetMac(mac);
    return message;
}

bool Has(const Desk& desk, PcRoute route) {
    return std::find(desk.routes().begin(), desk.routes().end(), route) != desk.routes().end();
}

bool Connect(Desk& desk) {
    if (Has(desk, PcRoute::kHid)) {
        desk.manager->SetMcuKbConnectStatus(true);
    }
    return !Has(desk, PcRoute::kBle) || desk.manager->BtConnect(simulator::kDefaultBleAddress);
}

bool StartDevice(Desk& desk) {
    return Has(desk, PcRoute::kBle) || desk.manager->DeviceInit();
}

void Created(Desk& desk) {
    ASSERT_TRUE(desk.Create());
}

// The old image on the tag, and no thread yet.
void Opened(Desk& desk) {
    Created(desk);
    ASSERT_TRUE(StartDevice(desk));
    ASSERT_TRUE(Connect(desk));
    // Off I2C nothing is read first, so the message's own content is what is written.
    desk.manager = NfcManager::Create(MessageOf(desk, kOld), &Desk::Listen);
    ASSERT_TRUE(StartDevice(desk));
    ASSERT_TRUE(desk.manager->UpdateNfcData());
}

void Running(Desk& desk) {
    Opened(desk);
    ASSERT_EQ(desk.manager->WriteMessage(MessageOf(desk, kOld)), 0);
    Desk::Pass(kThreadTime);
}

void NotConnected(Desk& desk) {
    Created(desk);
}

Action Write(std::uint8_t fill) {
    return [fill](Desk& desk) {
        const bool worked = desk.manager->WriteMessage(MessageOf(desk, fill)) == 0;
        Desk::Pass(kThreadTime);
        return worked;
    };
}

Action Renew(std::uint8_t fill) {
    return [fill](Desk& desk) {
        const std::size_t threads = hosted::Live().threads;
        std::uint8_t number[32];
        std::fill(std::begin(number), std::end(number), fill);
        if (desk.manager->WriteRandNum(number) != 0) {
            return false;
        }
        EXPECT_TRUE(Desk::WaitForThreads(threads, kWorkTime));
        return desk.log.Has("LocalWriteRand ReadRandNum Successful");
    };
}

bool Read(Desk& desk) {
    auto target = std::make_shared<NdefMessage>();
    const bool worked = desk.manager->ReadMessage(target) == 0;
    std::string url;
    target->GetUrl(url);
    EXPECT_EQ(worked, url == std::string(50, static_cast<char>('a' + kOld % 26)))
        << "the target has \"" << url << "\"";
    return worked;
}

bool Update(Desk& desk) {
    return desk.manager->UpdateNfcData();
}

bool ReadNumber(Desk& desk) {
    std::uint8_t number[32] = {};
    const bool worked = desk.manager->ReadRandNum(number) == 0;
    const bool read = std::all_of(std::begin(number), std::end(number),
                                  [](std::uint8_t byte) { return byte == kOld; });
    // Over Bluetooth a failed read does not fail the operation; then the array stays untouched.
    EXPECT_TRUE(!worked || read || (Has(desk, PcRoute::kBle) && number[0] == 0));
    return worked && read;
}

bool StartOnly(Desk& desk) {
    const bool worked = desk.manager->DeviceInit();
    Desk::Pass(kThreadTime);
    return worked;
}

bool ConnectOnly(Desk& desk) {
    return desk.manager->BtConnect(simulator::kDefaultBleAddress);
}

bool DisconnectOnly(Desk& desk) {
    return desk.manager->BtDisconnect(simulator::kDefaultBleAddress);
}

bool Visit(Desk& desk) {
    const std::size_t before = EventsHeard().size();
    desk.pc.TapPhone(0, kVisit);
    Desk::Pass(kVisitEnd);
    std::vector<int> events = EventsHeard();
    events.erase(events.begin(), events.begin() + static_cast<std::ptrdiff_t>(before));
    for (std::size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(events[i], i % 2 == 0 ? 3 : 1) << "event " << i << " of " << events.size();
    }
    return !events.empty() && events.size() % 2 == 0;
}

Action Restart(std::uint8_t fill) {
    return [fill](Desk& desk) {
        if (Has(desk, PcRoute::kBle)) {
            desk.manager->BtDisconnect(simulator::kDefaultBleAddress);
        }
        desk.manager = nullptr;
        Desk::Pass(kThreadTime);
        desk.manager = NfcManager::Create(MessageOf(desk, fill), &Desk::Listen);
        const bool worked = StartDevice(desk) && Connect(desk) &&
                            desk.manager->WriteMessage(MessageOf(desk, fill)) == 0;
        Desk::Pass(kThreadTime);
        return worked;
    };
}

bool VisitAgain(Desk& desk) {
    const bool written = Write(kNewer)(desk);
    Desk::Pass(kVisitEnd);  // an interrupt that came while nobody waited opens a visit of its own
    return written && Visit(desk);
}

bool DisconnectAgain(Desk& desk) {
    return ConnectOnly(desk) && DisconnectOnly(desk);
}

struct Peripheral {
    const char* name;
    PcRoute route;
    const char* chip;
};
constexpr Peripheral kPeripherals[] = {
    {"i2c_fm11nt081", PcRoute::kI2c, "fm11nt081"}, {"i2c_fm11nt082c", PcRoute::kI2c, "fm11nt082c"},
    {"i2c_fanli", PcRoute::kI2c, "fanli"},         {"usb_fm11nt081", PcRoute::kUsb, "fm11nt081"},
    {"hid", PcRoute::kHid, "fm11nt081"},           {"ble", PcRoute::kBle, "fm11nt081"},
};

std::vector<Flow> MakeFlows() {
    const std::vector<std::string> written{"UpdateNfcData success", "NfcThreadCreate pass"};
    std::vector<Flow> flows;
    for (const Peripheral& peripheral : kPeripherals) {
        const bool chip = peripheral.route == PcRoute::kI2c || peripheral.route == PcRoute::kUsb;
        const bool ble = peripheral.route == PcRoute::kBle;
        const auto add = [&](const char* name, std::function<void(Desk&)> prepare, Action act,
                             Action again, std::vector<std::string> success) {
            flows.push_back({std::string(name) + "_" + peripheral.name,
                             {peripheral.route},
                             peripheral.chip,
                             std::move(prepare),
                             std::move(act),
                             std::move(again),
                             std::move(success)});
        };
        if (!ble) {
            add("start", Created, StartOnly, StartOnly, {});
        } else {
            add("connect", NotConnected, ConnectOnly, ConnectOnly,
                {"[NFC] BleClientSubscribeNotify succ."});
            add("disconnect", Running, DisconnectOnly, DisconnectAgain, {});
        }
        if (chip) {
            add("read", Opened, Read, Read, {"NfcReadTag success!"});
        }
        add("write", Opened, Write(kNew), Write(kNewer), written);
        add("update", Opened, Update, Update, {"UpdateNfcData success"});
        add("renew", Running, Renew(kNew), Renew(kNewer),
            {"LocalWriteRand ReadRandNum Successful"});
        add("readnumber", Opened, ReadNumber, ReadNumber, {});
        add("visit", Running, Visit, VisitAgain, {});
        add("restart", Running, Restart(kNew), Restart(kNewer), written);
    }
    return flows;
}

}  // namespace

const std::vector<Flow>& Flows() {
    static const std::vector<Flow> flows = MakeFlows();
    return flows;
}

std::vector<std::uint8_t> TagBytes(Desk& desk, std::size_t count) {
    constexpr unsigned kImageRegister = 16;
    const hosted::DeviceLock lock;
    if (desk.pc.chip() != nullptr) {
        return desk.pc.chip()->BackDoor().Memory(kImageRegister, count);
    }
    return desk.pc.keyboard() != nullptr ? desk.pc.keyboard()->Memory(kImageRegister, count)
                                         : desk.pc.bluetooth()->Memory(kImageRegister, count);
}

}  // namespace testing_support
