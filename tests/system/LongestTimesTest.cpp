// The table of the longest times in docs/reference.md: on a driver that no longer answers, and on
// one that answers each request just before the library gives it up.
#include <gtest/gtest.h>
#include <tagport/NfcManager.h>
#include <tagport/Simulator.h>

#include <chrono>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace {

using tagport::Route;

constexpr char kSilent[] = "any#1+=never";
constexpr char kReadsAlone[] = "read#1+=never";
constexpr char kWritesAlone[] = "write#1+=never";
constexpr char kSlow[] = "any#1+=late:1990";

// Seconds; 0 where the operation is refused at once.
struct Row {
    std::string name;
    std::vector<Route> routes;
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
    {"i2c_silent",        {Route::kI2c}, "fm11nt081", kSilent,       7, 21, 19, 19,  3,  3},
    {"i2c_silent_reads",  {Route::kI2c}, "fm11nt081", kReadsAlone,  51, 21, 19, 19,  3,  3},
    {"i2c_silent_writes", {Route::kI2c}, "fm11nt081", kWritesAlone, 51, 21, 19, 19,  3,  3},
    {"i2c_slow",          {Route::kI2c}, "fm11nt081", kSlow,        31, 67, 27, 27, 41,  9},
    {"i2c_no_chip_slow",  {Route::kI2c}, "silent",    kSlow,        57,  0,  0,  0,  0,  0},
    {"fanli_silent",      {Route::kI2c}, "fanli",     kReadsAlone,  51, 23, 23, 23,  3,  3},
    {"fanli_slow",        {Route::kI2c}, "fanli",     kSlow,        17, 31, 31, 31, 41,  9},
    {"usb_silent",        {Route::kUsb}, "fm11nt081", kReadsAlone,  40, 19, 19, 19,  3,  3},
    {"usb_slow",          {Route::kUsb}, "fm11nt081", kSlow,        21, 27, 27, 27, 41,  9},
    {"hid_silent",        {Route::kHid}, "fm11nt081", kSilent,       1, 10, 10, 10,  0,  3},
    {"hid_slow",          {Route::kHid}, "fm11nt081", kSlow,         1, 23, 23, 23,  0,  5},
    {"i2c_ble_slow", {Route::kI2c, Route::kBle}, "fm11nt081", kSlow, 31, 67, 27, 27, 41, 9}};
// clang-format on

std::shared_ptr<NdefMessage> NewMessage() {
    auto message = std::make_shared<NdefMessage>();
    message->SetUrl("example.com/pc?" + std::string(35, '0'));
    message->SetPcType(5);
    message->SetRandomNumber({1, 2, 3, 4});
    return message;
}

struct LongestTimes : testing::TestWithParam<Row> {
    LongestTimes() {
        tagport::UseScheduledClock(1);
        pc.emplace(GetParam().routes, GetParam().chip);
        manager = NfcManager::Create(NewMessage(), nullptr);
        manager->SetMcuKbConnectStatus(true);
    }

    template <class Operation>
    void Expect(const char* name, int limit, Operation operation) {
        pc->SetFaults(GetParam().plan);
        const tagport::Time begin = tagport::Now();
        operation();
        const std::chrono::duration<double> took = tagport::Now() - begin;
        EXPECT_LE(took.count(), limit) << name;
        pc->SetFaults("");
        if (GetParam().writeMessage != 0) {
            Recover();
        }
    }

    // As it is before each operation.
    void Recover() {
        ASSERT_TRUE(manager->DeviceInit());
        if (GetParam().routes.back() == Route::kBle) {
            ASSERT_TRUE(manager->BtConnect(tagport::kKeyboardAddress));
        }
        ASSERT_EQ(manager->WriteMessage(NewMessage()), 0);
    }

    std::optional<tagport::SimulatedPc> pc;
    std::shared_ptr<NfcManager> manager;
};

TEST_P(LongestTimes, Hold) {
    const Row& row = GetParam();
    Expect("DeviceInit", row.deviceInit, [&] { manager->DeviceInit(); });
    if (row.writeMessage == 0) {
        return;
    }
    Expect("WriteMessage", row.writeMessage, [&] { manager->WriteMessage(NewMessage()); });
    Expect("UpdateNfcData", row.updateNfcData, [&] { manager->UpdateNfcData(); });
    const std::size_t threads = tagport::Live().threads;
    Expect("number thread", row.numberThread, [&] {
        ASSERT_EQ(manager->WriteRandNum({9, 9, 9, 9}), 0);
        tagport::WaitFor([=] { return tagport::Live().threads <= threads; }, tagport::kWithoutEnd);
    });
    Expect("ReadMessage", row.readMessage,
           [&] { manager->ReadMessage(std::make_shared<NdefMessage>()); });
    std::uint8_t number[32] = {};
    Expect("ReadRandNum", row.readRandNum, [&] { manager->ReadRandNum(number); });
}

INSTANTIATE_TEST_SUITE_P(, LongestTimes, testing::ValuesIn(kRows),
                         [](const auto& info) { return info.param.name; });

}  // namespace
