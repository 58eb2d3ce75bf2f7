// Puts a message on the tag: what is merged and checked, what a failed step leaves, and what
// another thread does meanwhile.
#include "chip/NfcDeviceContext.h"
#include "manager/ManagerLocks.h"
#include "platform/services/standin/ClientBackDoor.h"
#include "tagimage/NfcData.h"
#include "tests/manager/ManagerAccess.h"
#include "tests/support/PcWithHost.h"

using LinkDockService::BleCall;
using namespace testing_support;

namespace {

constexpr std::size_t kEventThreads = 2;

struct PcWithTag : StartedPc {
    PcWithTag() : StartedPc({PcRoute::kI2c}, "fm11nt082c") {}
};

TEST(WriteMessage, StartsNoThreadThatIsThere) {
    PcWithTag setup;
    EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage()), 0);
    EXPECT_TRUE(HasInOrder(setup.log, {"NFC_ m_staticNotificationThread already exist",
                                       "NFC_ m_staticCallThread already exist"}));
    EXPECT_EQ(emulation::Live().threads, kEventThreads);
}

using Operation = bool (*)(PcWithHost& setup);
const Operation kOperations[] = {
    [](PcWithHost& setup) { return setup.manager->DeviceInit(); },
    [](PcWithHost& setup) { return setup.manager->WriteMessage(setup.NewMessage(0x22)) == 0; },
    [](PcWithHost& setup) { return setup.manager->UpdateNfcData(); },
    [](PcWithHost& setup) {
        return setup.manager->ReadMessage(std::make_shared<NdefMessage>()) == 0;
    },
    [](PcWithHost& setup) { return NfcManagerTestAccess::UpdateNfcContent(*setup.manager); },
    // Waits for single steps on the tag alone.
    [](PcWithHost& setup) {
        std::uint8_t number[32];
        return setup.manager->ReadRandNum(number) == 0;
    },
};

TEST(Operations, WaitUntilTheOneThatIsUnderWayHasEnded) {
    for (const Operation& operation : kOperations) {
        ForEachSeed(1, [&operation] {
            SCOPED_TRACE(&operation - kOperations);
            PcWithTag setup;
            OnThread([] {
                const platform::Lock lock(m_staticDeviceMutex);
                Sleep(60'000);
            });
            PcWithHost::Pass(kMillisecond);
            const emulation::Micros begin = emulation::Now();
            EXPECT_TRUE(operation(setup));
            const bool waits = &operation != std::end(kOperations) - 1;
            EXPECT_EQ(emulation::Now() - begin > 50 * kSecond, waits);
        });
    }
}

TEST(WriteMessage, MergesTheCallersFieldsOverTheTags) {
    PcWithTag setup;
    NfcManagerTestAccess::Message(*setup.manager)->SetUrl(std::string(50, 'w'));
    const auto withoutUrl = std::make_shared<NdefMessage>();
    withoutUrl->SetMac({9, 8, 7, 6, 5, 4});
    withoutUrl->SetModel({1, 2, 3, 4});
    SetNumber(*withoutUrl, NumberOf(0x22));
    EXPECT_EQ(setup.manager->WriteMessage(withoutUrl), 0) << "whatever its PC type";
    NfcData data;
    ASSERT_TRUE(data.Init() && data.Parse(setup.ImageOnChip(143)));
    EXPECT_EQ(data.GetUrl(), std::string(50, 'u')) << "the tag's, not the manager's";
    EXPECT_EQ(data.GetMacAddr() + data.GetModel(), "\x9\x8\x7\x6\x5\x4\x1\x2\x3\x4");
    EXPECT_EQ(data.GetRandomNumber(), std::string(32, 0x22));
}

TEST(ReadMessage, RefusesASpoiledImageUntilItIsWrittenAgain) {
    PcWithTag setup;
    NfcData withoutUrl;
    ASSERT_TRUE(withoutUrl.Init() && withoutUrl.InitValue());
    const std::string image = withoutUrl.GetContent();
    const struct {
        unsigned at;
        simulator::Bytes bytes;
        std::size_t parseFailures;
    } spoiled[] = {{18, {0xD1}, 2}, {16, {image.begin(), image.end()}, 0}};
    for (const auto& [at, bytes, parseFailures] : spoiled) {
        setup.log.Clear();
        setup.pc.chip()->BackDoor().SetMemory(at, bytes);
        const auto target = std::make_shared<NdefMessage>();
        EXPECT_EQ(setup.manager->ReadMessage(target), -1);
        EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(0x22)), 0);
        EXPECT_EQ(setup.log.Count("nfcDataRead init fail"), parseFailures);
        setup.log.TakeUnannounced();
        EXPECT_EQ(setup.manager->ReadMessage(target), 0);
        EXPECT_EQ(setup.manager->ReadMessage(nullptr), -1);
        std::uint8_t type = 1;
        target->GetPcType(type);
        EXPECT_EQ(type, 0) << "all but the PC type is filled";
    }
}

struct TwoRoutes : StartedPc {
    TwoRoutes() : StartedPc({PcRoute::kI2c, PcRoute::kBle}, "fm11nt082c") {
        log.Clear();
        threads = emulation::Live().threads;
    }
    // The next three that go over Bluetooth.
    static void RefuseThreeWrites() {
        for (const unsigned nth : {1U, 2U, 3U}) {
            LinkDockService::FailCall(BleCall::kWrite, nth);
        }
    }
    std::string ErrorsInTheEnd() {
        EXPECT_TRUE(WaitForThreads(threads));
        return Joined(log.TakeUnannounced());
    }
    std::size_t threads = 0;
};

// A number that is zero at the places that the read-back of a message looks at but one. The number
// thread does not look there.
Number OnlyByteTwo() {
    Number number = NumberOf(0x33);
    number[0] = number[1] = number[31] = 0;
    return number;
}

TEST(WriteMessageAndWriteRandNum, SayWhichStepFailed) {
    TwoRoutes setup;
    const auto message = setup.NewMessage(0x22);
    const std::string refusedThrice =
        "[NFC] BleClientWrite ERROR, [NFC] BleClientWrite ERROR, [NFC] BleClientWrite ERROR, ";
    TwoRoutes::RefuseThreeWrites();
    EXPECT_EQ(setup.manager->WriteMessage(message), -1);
    EXPECT_EQ(setup.ErrorsInTheEnd(),
              refusedThrice + "UpdateNfcData Write failed, UpdateNfcData failed");
    EXPECT_TRUE(setup.log.Has("NfcThreadCreate pass")) << "failed or not";
    TwoRoutes::RefuseThreeWrites();
    EXPECT_EQ(Renew(*setup.manager, NumberOf(4)), 0);
    EXPECT_EQ(setup.ErrorsInTheEnd(),
              refusedThrice + "LocalWriteRand WriteNfcContent failed, LocalWriteRand failed");
    setup.log.Clear();
    EXPECT_EQ(Renew(*setup.manager, OnlyByteTwo()), 0);
    EXPECT_EQ(setup.ErrorsInTheEnd(), "LocalWriteRand ReadRandNum failed, LocalWriteRand failed");
    EXPECT_EQ(setup.log.Count("LocalWriteRand begin ReadRandNum"), 3U);
    EXPECT_EQ(Renew(*setup.manager, OnlyByteTwo()), 0);
    EXPECT_TRUE(setup.log.Has("WriteRandNum no need to update")) << "given again after a failure";
    SetNumber(*message, OnlyByteTwo());
    EXPECT_EQ(setup.manager->WriteMessage(message), 0);
    EXPECT_EQ(setup.ErrorsInTheEnd(), "");
    message->SetUrl(std::string(163, 'v'));
    EXPECT_EQ(setup.manager->WriteMessage(message), -1);
    EXPECT_EQ(setup.ErrorsInTheEnd(),
              "length error, m_nfcData SetUrl failed, SetContent fail, UpdateNfcData failed");
    // The URL stays in memory, so that a number does not fit either.
    EXPECT_EQ(Renew(*setup.manager, NumberOf(4)), -1);
    EXPECT_EQ(setup.ErrorsInTheEnd(),
              "length error, m_nfcData SetRandomNumber failed, SetRandomNumber fail");
}

// A chip whose mode byte is not 6 starts silent, and takes no frame while it stores a block.
TEST(WriteMessage, SwitchesTheRadioOnBesideANumberThread) {
    ForEachSeed(100, [] {
        constexpr unsigned kModeRegister = 0x038C;
        PcWithHost setup({PcRoute::kI2c});
        setup.pc.chip()->BackDoor().StickBits(kModeRegister, 0x10, 0x10);
        ASSERT_TRUE(setup.Create() && setup.manager->DeviceInit());
        OnThread([&setup] {
            Sleep(static_cast<DWORD>(1 + emulation::Random() % 300));
            EXPECT_EQ(Renew(*setup.manager, NumberOf(0x41)), 0);
        });
        EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage()), 0);
        EXPECT_TRUE(PcWithHost::WaitForThreads(kEventThreads));
        setup.log.TakeUnannounced();
        EXPECT_TRUE(setup.pc.chip()->BackDoor().RadioOn());
    });
}

// In half of the runs an interrupt comes while the write gives up, one thread running already.
TEST(WriteMessage, StartsBothThreadsOrNone) {
    ForEachSeed(300, [] {
        PcWithHost setup({PcRoute::kI2c}, "fm11nt082c");
        ASSERT_TRUE(setup.Create() && setup.manager->DeviceInit());
        const unsigned failing = 1 + static_cast<unsigned>(emulation::Random() % 2);
        const RefusedCalls refused(emulation::Call::kCreateThread, failing, failing);
        if (emulation::Random() % 2 == 0) {
            setup.log.OnLine([&](const std::string& text) {
                if (text == "NfcThreadCreate exit Begin WaitForSingleObject") {
                    Sleep(100);
                    setup.pc.chip()->BackDoor().RaiseInterrupt();
                }
                Sleep(refused.seen == 2 ? 100 : 0);
            });
        }
        EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(0x41)), -1);
        setup.log.OnLine({});
        PcWithHost::Pass(kSecond);
        EXPECT_EQ(EventNumbers(), std::vector<int>{}) << "no visit that nobody closes";
        EXPECT_EQ(emulation::Live().requests + emulation::Live().threads, 0U)
            << "the other one ends";
        EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(0x42)), 0);
        PcWithHost::Pass(20 * kSecond);  // the driver may have kept the interrupt
        TakeEvents();
        setup.pc.TapPhone(0, kSecond);
        PcWithHost::Pass(20 * kSecond);
        EXPECT_EQ(EventNumbers(), (std::vector<int>{3, 1})) << "from one thread of each kind";
        EXPECT_EQ(emulation::Live().threads, kEventThreads);
        setup.log.TakeUnannounced();
    });
}

TEST(UpdateNfcContent, WritesWhatDiffers) {
    TwoRoutes setup;
    const auto update = [&setup] { return NfcManagerTestAccess::UpdateNfcContent(*setup.manager); };
    EXPECT_TRUE(update());
    // The start makes two reads, the image ten.
    for (const auto& [faults, lastLine] :
         {std::pair{"read#3+=fail:31", "UpdateNfcContent ReadNfcContent failed"},
          std::pair{"read#13+=fail:31", "ReadRandNum failed"}}) {
        setup.SetFaults(faults);
        EXPECT_FALSE(update());
        EXPECT_EQ(setup.log.TakeUnannounced().back(), lastLine);
    }
    setup.SetFaults("");
    setup.log.Clear();
    EXPECT_EQ(setup.pc.bluetooth()->ImagesStored(), 1U) << "equal content is not written again";
    SetNumber(*NfcManagerTestAccess::Message(*setup.manager), NumberOf(0x22));
    TwoRoutes::RefuseThreeWrites();
    EXPECT_FALSE(update());
    EXPECT_EQ(setup.log.TakeUnannounced().back(), "UpdateNfcContent reWrite failed");
    EXPECT_TRUE(update());
    EXPECT_TRUE(setup.log.Has("UpdateNfcContent Write Nfc Chip Successful"));
    EXPECT_EQ(setup.pc.bluetooth()->ImagesStored(), 2U);
    EXPECT_EQ(setup.NumberOnChip(), NumberOf(0x22));
}

// Another manager ends at a random time of the operation, which must not notice.
TEST(AnotherManagersEnd, CutsNoOperationShort) {
    for (const Operation& operation : kOperations) {
        ForEachSeed(60, [&operation] {
            SCOPED_TRACE(&operation - kOperations);
            StartedPc setup({PcRoute::kI2c}, "fanli");
            auto other = NfcManager::Create(setup.NewMessage(), &PcWithHost::Listen);
            EXPECT_TRUE(setup.manager->DeviceInit());
            const emulation::Micros end =
                static_cast<emulation::Micros>(emulation::Random() % 1000) * kMillisecond;
            OnThread([&other, end] {
                Sleep(static_cast<DWORD>(end / kMillisecond));
                other.reset();
            });
            const bool isWrite = &operation == &kOperations[1];
            EXPECT_TRUE(operation(setup));
            const NfcDeviceContext& context = GetNfcDeviceContext();
            EXPECT_EQ(context.chipKind, NfcChipFanli);
            EXPECT_TRUE(!isWrite || context.spbDriverOps.load()->radioEnabled);
            PcWithHost::Pass(kSecond);
        });
    }
}

// The address sanitizer finds a use of what the assignment has freed.
TEST(Assignment, DuringAWriteLeavesTheAssignedMessageAlone) {
    ForEachSeed(60, [] {
        StartedPc setup({PcRoute::kI2c}, "fm11nt082c");
        const auto message = setup.NewMessage(0x22, 'b');
        const auto other = NfcManager::Create(message, &PcWithHost::Listen);
        OnThread([&setup] { setup.manager->WriteMessage(setup.NewMessage(0x33, 'a')); });
        PcWithHost::Pass(static_cast<emulation::Micros>(emulation::Random() % 150) * kMillisecond);
        *setup.manager = *other;
        EXPECT_EQ(Renew(*setup.manager, NumberOf(0x44)), 0);
        EXPECT_TRUE(PcWithHost::WaitForThreads(2, 60 * kSecond));
        std::string url;
        message->GetUrl(url);
        EXPECT_EQ(url, std::string(50, 'b'));
        EXPECT_EQ(NumberIn(*message), NumberOf(0x44));
    });
}

void WriteOften(PcWithHost& setup, std::uint8_t maker) {
    for (int i = 0; i < 5; ++i) {
        const auto number = static_cast<std::uint8_t>(1 + emulation::Random() % 3);
        switch (emulation::Random() % 4) {
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
            const auto inMemory =
                static_cast<char>(NumberIn(*NfcManagerTestAccess::Message(*setup.manager))[0]);
            EXPECT_EQ(data.GetRandomNumber(), std::string(32, inMemory));
            setup.log.TakeUnannounced();  // of reads that the keyboards refuse
        });
    }
}

}  // namespace
