// What ends or is replaced while an operation or a device start is under way.
#include <gtest/gtest.h>

#include "chip/NfcDeviceContext.h"
#include "platform/platform.h"
#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;
using hosted::kMillisecond;

namespace {

// Drops the pointer to a manager at a random time in the first half second.
DWORD WINAPI EndManager(LPVOID manager) {
    Sleep(static_cast<DWORD>(hosted::Random() % 500));
    static_cast<std::shared_ptr<NfcManager>*>(manager)->reset();
    return 0;
}

struct TwoManagers : Desk {
    TwoManagers() : Desk({PcRoute::kI2c}, "fanli") {
        EXPECT_TRUE(Create());
        other = NfcManager::Create(NewMessage(), &Desk::Listen);
        AnnounceStop(log);
        log.Announce("Nfc chip Fanli");
    }
    void EndTheOtherMeanwhile() {
        CloseHandle(CreateThread(nullptr, 0, EndManager, &other, 0, nullptr));
    }
    std::shared_ptr<NfcManager> other;
};

TEST(AnotherManagersEnd, CutsNoWriteShortOfItsRadio) {
    ForEachSeed(60, [] {
        TwoManagers desk;
        ASSERT_TRUE(desk.manager->DeviceInit());
        desk.EndTheOtherMeanwhile();
        EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x22)), 0);
        EXPECT_TRUE(GetNfcDeviceContext().spbDriverOps.load()->radioEnabled);
        Desk::Pass(hosted::kSecond);
    });
}

TEST(AnotherManagersEnd, DoesNotMakeTheChipAnotherOne) {
    ForEachSeed(60, [] {
        TwoManagers desk;
        desk.EndTheOtherMeanwhile();
        EXPECT_TRUE(desk.manager->DeviceInit());
        EXPECT_EQ(GetNfcDeviceContext().chipKind, NfcChipFanli);
        Desk::Pass(hosted::kSecond);
    });
}

DWORD WINAPI AssignNothing(LPVOID manager) {
    Sleep(static_cast<DWORD>(hosted::Random() % 300));
    *static_cast<NfcManager*>(manager) = NfcManager(nullptr);
    return 0;
}

// The address sanitizer finds a use of what the assignment has freed.
TEST(Assignment, DuringAWriteLeavesAWholeImage) {
    ForEachSeed(60, [] {
        Desk desk({PcRoute::kUsb});
        desk.Start();
        CloseHandle(CreateThread(nullptr, 0, AssignNothing, desk.manager.get(), 0, nullptr));
        desk.manager->WriteMessage(desk.NewMessage(0x22));
        desk.manager->UpdateNfcData();
        const Number number = desk.NumberOnChip();
        EXPECT_TRUE(number == NumberOf(0x11) || number == NumberOf(0x22));
        Desk::Pass(hosted::kSecond);
        EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x33)), -1);
        desk.log.TakeUnannounced();  // of operations on a manager that has lost its parts
    });
}

}  // namespace
