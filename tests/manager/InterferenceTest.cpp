// What another thread does while an operation or a device start is under way.
#include <gtest/gtest.h>

#include "chip/NfcDeviceContext.h"
#include "tagimage/NfcData.h"
#include "tests/manager/ManagerAccess.h"
#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

// Two managers of one tag, one of which ends at a random time in the next half second.
struct EndingManager : Desk {
    EndingManager() : Desk({PcRoute::kI2c}, "fanli") {
        EXPECT_TRUE(Create());
        other = NfcManager::Create(NewMessage(), &Desk::Listen);
        AnnounceStop(log);
        log.Announce("Nfc chip Fanli");
    }
    void EndTheOtherMeanwhile() {
        OnThread([this] {
            Sleep(static_cast<DWORD>(hosted::Random() % 500));
            other.reset();
        });
    }
    std::shared_ptr<NfcManager> other;
};

TEST(AnotherManagersEnd, CutsNoWriteShortOfItsRadio) {
    ForEachSeed(60, [] {
        EndingManager desk;
        ASSERT_TRUE(desk.manager->DeviceInit());
        desk.EndTheOtherMeanwhile();
        EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x22)), 0);
        EXPECT_TRUE(GetNfcDeviceContext().spbDriverOps.load()->radioEnabled);
        Desk::Pass(hosted::kSecond);
    });
}

TEST(AnotherManagersEnd, DoesNotMakeTheChipAnotherOne) {
    ForEachSeed(60, [] {
        EndingManager desk;
        desk.EndTheOtherMeanwhile();
        EXPECT_TRUE(desk.manager->DeviceInit());
        EXPECT_EQ(GetNfcDeviceContext().chipKind, NfcChipFanli);
        Desk::Pass(hosted::kSecond);
    });
}

// The address sanitizer finds a use of what the assignment has freed.
TEST(Assignment, DuringAWriteLeavesTheAssignedMessageAlone) {
    ForEachSeed(60, [] {
        Desk desk({PcRoute::kI2c}, "fm11nt082c");
        desk.Start();
        AnnounceStop(desk.log);
        const auto message = desk.NewMessage(0x22, 'b');
        const auto other = NfcManager::Create(message, &Desk::Listen);
        OnThread([&desk] { desk.manager->WriteMessage(desk.NewMessage(0x33, 'a')); });
        Desk::Pass(static_cast<hosted::Micros>(hosted::Random() % 150) * hosted::kMillisecond);
        *desk.manager = *other;
        EXPECT_EQ(Renew(*desk.manager, NumberOf(0x44)), 0);
        EXPECT_TRUE(Desk::WaitForThreads(2, 60 * hosted::kSecond));
        std::string url;
        Number number;
        message->GetUrl(url);
        NfcManagerTestAccess::Message(*other)->GetRandomNumber(
            reinterpret_cast<std::uint8_t(&)[32]>(*number.data()));
        EXPECT_EQ(url, std::string(50, 'b'));
        EXPECT_EQ(number, NumberOf(0x44));
    });
}

TEST(Assignment, DuringAWriteLeavesAWholeImage) {
    ForEachSeed(60, [] {
        Desk desk({PcRoute::kUsb});
        desk.Start();
        OnThread([&desk] {
            Sleep(static_cast<DWORD>(hosted::Random() % 300));
            *desk.manager = NfcManager(nullptr);
        });
        desk.manager->WriteMessage(desk.NewMessage(0x22));
        desk.manager->UpdateNfcData();
        const Number number = desk.NumberOnChip();
        EXPECT_TRUE(number == NumberOf(0x11) || number == NumberOf(0x22));
        Desk::Pass(hosted::kSecond);
        EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x33)), -1);
        desk.log.TakeUnannounced();  // of operations on a manager that has lost its parts
    });
}

void WriteOften(Desk& desk, std::uint8_t maker) {
    for (int i = 0; i < 5; ++i) {
        const auto number = static_cast<std::uint8_t>(1 + hosted::Random() % 3);
        switch (hosted::Random() % 4) {
            case 0:
                EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(number, maker)), 0);
                break;
            case 1:
                desk.manager->ReadMessage(NfcManagerTestAccess::Message(*desk.manager));
                break;
            default:
                EXPECT_EQ(Renew(*desk.manager, NumberOf(number)), 0);
        }
    }
}

TEST(TwoWriters, LeaveOneWholeImageAndItsNumberInMemory) {
    for (const PcRoute route : {PcRoute::kI2c, PcRoute::kHid, PcRoute::kBle}) {
        ForEachSeed(100, [route] {
            Desk desk({route}, "fm11nt082c");
            desk.Start(1);
            for (const std::uint8_t maker : {std::uint8_t{0xAA}, std::uint8_t{0xBB}}) {
                OnThread([&desk, maker] { WriteOften(desk, maker); });
            }
            // The deferred call thread stays, and the one that listens to the route.
            EXPECT_TRUE(Desk::WaitForThreads(2, 600 * hosted::kSecond));
            NfcData data;
            ASSERT_TRUE(data.Init() && data.Parse(desk.ImageOnChip(143)));
            const std::string made = data.GetUrl() + data.GetMacAddr() + data.GetModel();
            EXPECT_EQ(made, std::string(60, made[0]));
            std::uint8_t inMemory[32];
            NfcManagerTestAccess::Message(*desk.manager)->GetRandomNumber(inMemory);
            EXPECT_EQ(data.GetRandomNumber(), std::string(32, static_cast<char>(inMemory[0])));
            desk.log.TakeUnannounced();  // of reads that the keyboards refuse
        });
    }
}

}  // namespace
