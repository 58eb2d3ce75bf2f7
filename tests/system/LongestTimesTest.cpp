// The table of the longest times in docs/reference.md: on a driver that no longer answers, and on
// one that answers each request just before the library gives it up.
#include <ostream>

#include "tests/support/PcWithHost.h"

using namespace testing_support;

namespace {

constexpr char kSilent[] = "any#1+=never";
constexpr char kReadsAlone[] = "read#1+=never";
constexpr char kWritesAlone[] = "write#1+=never";
constexpr char kSlow[] = "any#1+=late:1990";

// Seconds; 0 where the operation is refused at once.
struct Row {
    std::string name;
    std::vector<PcRoute> routes;
    std::string chip;
    std::string plan;
    int deviceInit;
    int writeMessage;
    int updateNfcData;
    int numberThread;
    int readMessage;
    int readRandNum;
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

// clang-format off
const Row kRows[] = {
    {"i2c_silent",        {PcRoute::kI2c}, "fm11nt081", kSilent,       7, 21, 19, 19,  3,  3},
    {"i2c_silent_reads",  {PcRoute::kI2c}, "fm11nt081", kReadsAlone,  51, 21, 19, 19,  3,  3},
    {"i2c_silent_writes", {PcRoute::kI2c}, "fm11nt081", kWritesAlone, 51, 21, 19, 19,  3,  3},
    {"i2c_slow",          {PcRoute::kI2c}, "fm11nt081", kSlow,        31, 67, 27, 27, 41,  9},
    {"i2c_no_chip_slow",  {PcRoute::kI2c}, "silent",    kSlow,        57,  0,  0,  0,  0,  0},
    {"fanli_silent",      {PcRoute::kI2c}, "fanli",     kReadsAlone,  51, 23, 23, 23,  3,  3},
    {"fanli_slow",        {PcRoute::kI2c}, "fanli",     kSlow,        17, 31, 31, 31, 41,  9},
    {"usb_silent",        {PcRoute::kUsb}, "fm11nt081", kReadsAlone,  40, 19, 19, 19,  3,  3},
    {"usb_slow",          {PcRoute::kUsb}, "fm11nt081", kSlow,        21, 27, 27, 27, 41,  9},
    {"hid_silent",        {PcRoute::kHid}, "fm11nt081", kSilent,       1, 10, 10, 10,  0,  3},
    {"hid_slow",          {PcRoute::kHid}, "fm11nt081", kSlow,         1, 23, 23, 23,  0,  5},
    {"i2c_ble_slow", {PcRoute::kI2c, PcRoute::kBle}, "fm11nt081", kSlow, 31, 67, 27, 27, 41, 9}};
// clang-format on

struct LongestTimes : PcWithHost, testing::TestWithParam<Row> {
    LongestTimes() : PcWithHost(GetParam().routes, GetParam().chip) {}

    void Expect(const char* name, int limit, const std::function<void()>& operation) {
        SetFaults(GetParam().plan);
        const emulation::Micros begin = emulation::Now();
        operation();
        EXPECT_LE(emulation::Now() - begin, limit * kSecond) << name;
        SetFaults("");
        if (GetParam().writeMessage != 0) {  // as it is before each operation
            ASSERT_TRUE(StartDevices(*manager));
            ASSERT_EQ(manager->WriteMessage(NewMessage()), 0);
        }
        log.TakeUnannounced();  // of the faults
    }
};

TEST_P(LongestTimes, Hold) {
    const Row& row = GetParam();
    ASSERT_TRUE(Create() && manager->SetMcuKbConnectStatus(true));
    Expect("DeviceInit", row.deviceInit, [&] { manager->DeviceInit(); });
    if (row.writeMessage == 0) {
        return;
    }
    Expect("WriteMessage", row.writeMessage, [&] { manager->WriteMessage(NewMessage()); });
    Expect("UpdateNfcData", row.updateNfcData, [&] { manager->UpdateNfcData(); });
    const std::size_t threads = emulation::Live().threads;
    Expect("number thread", row.numberThread, [&] {
        ASSERT_EQ(Renew(*manager, NumberOf(0x99)), 0);
        WaitForThreads(threads);
    });
    Expect("ReadMessage", row.readMessage,
           [&] { manager->ReadMessage(std::make_shared<NdefMessage>()); });
    std::uint8_t number[32] = {};
    Expect("ReadRandNum", row.readRandNum, [&] { manager->ReadRandNum(number); });
}

INSTANTIATE_TEST_SUITE_P(, LongestTimes, testing::ValuesIn(kRows),
                         [](const auto& info) { return info.param.name; });

}  // namespace
