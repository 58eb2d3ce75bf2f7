// What another thread does while an operation or a device start is under way.
#include <gtest/gtest.h>

#include "chip/NfcDeviceContext.h"
#include "tagimage/NfcData.h"
#include "tests/manager/ManagerAccess.h"
#include "tests/support/PcWithHost.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

// Two managers of one tag, one of which ends at a random time in the next half second.
struct EndingManager : PcWithHost {
    EndingManager() : PcWithHost({PcRoute::kI2c}, "fanli") {
        EXPECT_TRUE(Create());
        other = NfcManager::Create(NewMessage(), &PcWithHost::Listen);
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
        EndingManager setup;
        ASSERT_TRUE(setup.manager->DeviceInit());
        setup.EndTheOtherMeanwhile();
        EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(0x22)), 0);
        EXPECT_TRUE(GetNfcDeviceContext().spbDriverOps.load()->radioEnabled);
        PcWithHost::Pass(kSecond);
    });
}

TEST(AnotherManagersEnd, DoesNotMakeTheChipAnotherOne) {
    ForEachSeed(60, [] {
        EndingManager setup;
        setup.EndTheOtherMeanwhile();
        EXPECT_TRUE(setup.manager->DeviceInit());
        EXPECT_EQ(GetNfcDeviceContext().chipKind, NfcChipFanli);
        PcWithHost::Pass(kSecond);
    });
}

// The address sanitizer finds a use of what the assignment has freed.
TEST(Assignment, DuringAWriteLeavesTheAssignedMessageAlone) {
    ForEachSeed(60, [] {
        PcWithHost setup({PcRoute::kI2c}, "fm11nt082c");
        setup.Start();
        const auto message = setup.NewMessage(0x22, 'b');
        const auto other = NfcManager::Create(message, &PcWithHost::Listen);
        OnThread([&setup] { setup.manager->WriteMessage(setup.NewMessage(0x33, 'a')); });
        PcWithHost::Pass(static_cast<hosted::Micros>(hosted::Random() % 150) * kMillisecond);
        *setup.manager = *other;
        EXPECT_EQ(Renew(*setup.manager, NumberOf(0x44)), 0);
        EXPECT_TRUE(PcWithHost::WaitForThreads(2, 60 * kSecond));
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
        PcWithHost setup({PcRoute::kUsb});
        setup.Start();
        OnThread([&setup] {
            Sleep(static_cast<DWORD>(hosted::Random() % 300));
            *setup.manager = NfcManager(nullptr);
        });
        setup.manager->WriteMessage(setup.NewMessage(0x22));
        setup.manager->UpdateNfcData();
        const Number number = setup.NumberOnChip();
        EXPECT_TRUE(number == NumberOf(0x11) || number == NumberOf(0x22));
        PcWithHost::Pass(kSecond);
        EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(0x33)), -1);
        setup.log.TakeUnannounced();  // of operations on a manager that has lost its parts
    });
}

void WriteOften(PcWithHost& setup, std::uint8_t maker) {
    for (int i = 0; i < 5; ++i) {
        const auto number = static_cast<std::uint8_t>(1 + hosted::Random() % 3);
        switch (hosted::Random() % 4) {
            case 0:
                EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(number, maker)), 0);
                break;
            case 1:
                setup.manager->ReadMessage(NfcManagerTestAccess::Message(*setup.manager));
                break;
            default:
                EXPECT_EQ(Renew(*setup.manager, NumberOf(number)), 0);
        }
    }
}

TEST(TwoWriters, LeaveOneWholeImageAndItsNumberInMemory) {
    for (const PcRoute route : {PcRoute::kI2c, PcRoute::kHid, PcRoute::kBle}) {
        ForEachSeed(100, [route] {
            PcWithHost setup({route}, "fm11nt082c");
            setup.Start(1);
            for (const std::uint8_t maker : {std::uint8_t{0xAA}, std::uint8_t{0xBB}}) {
                OnThread([&setup, maker] { WriteOften(setup, maker); });
            }
            // The deferred call thread stays, and the one that listens to the route.
            EXPECT_TRUE(PcWithHost::WaitForThreads(2, 600 * kSecond));
            NfcData data;
            ASSERT_TRUE(data.Init() && data.Parse(setup.ImageOnChip(143)));
            const std::string made = data.GetUrl() + data.GetMacAddr() + data.GetModel();
            EXPECT_EQ(made, std::string(60, made[0]));
            std::uint8_t inMemory[32];
            NfcManagerTestAccess::Message(*setup.manager)->GetRandomNumber(inMemory);
            EXPECT_EQ(data.GetRandomNumber(), std::string(32, static_cast<char>(inMemory[0])));
            setup.log.TakeUnannounced();  // of reads that the keyboards refuse
        });
    }
}

}  // namespace
