// Puts a message on the tag: what is merged and checked, what a failed step leaves, and what
// another thread does meanwhile.
#include "chip/NfcDeviceContext.h"
#include "manager/ManagerLocks.h"
#include "tagimage/NfcData.h"
#include "tests/manager/ManagerAccess.h"
#include "tests/support/PcWithHost.h"

using namespace testing_support;

namespace {

struct PcWithTag : StartedPc {
    PcWithTag() : StartedPc({PcRoute::kI2c}, "fm11nt082c") {}
};

const struct Operation {
    const char* name;
    bool (*works)(PcWithHost& setup);
    bool isFlow = true;  // else it waits for single steps on the tag alone
} kOperations[] = {
    {"DeviceInit", [](PcWithHost& pc) { return pc.manager->DeviceInit(); }},
    {"WriteMessage",
     [](PcWithHost& pc) { return pc.manager->WriteMessage(pc.NewMessage(0x22)) == 0; }},
    {"UpdateNfcData", [](PcWithHost& pc) { return pc.manager->UpdateNfcData(); }},
    {"ReadMessage",
     [](PcWithHost& pc) { return pc.manager->ReadMessage(std::make_shared<NdefMessage>()) == 0; }},
    {"UpdateNfcContent",
     [](PcWithHost& pc) { return NfcManagerTestAccess::UpdateNfcContent(*pc.manager); }},
    {"ReadRandNum",
     [](PcWithHost& pc) {
         std::uint8_t number[32];
         return pc.manager->ReadRandNum(number) == 0;
     },
     false},
};

TEST(Operations, WaitUntilTheOneThatIsUnderWayHasEnded) {
    for (const Operation& operation : kOperations) {
        ForEachSeed(1, [&operation] {
            SCOPED_TRACE(operation.name);
            PcWithTag setup;
            OnThread([] {
                const platform::Lock lock(m_staticDeviceMutex);
                Sleep(60'000);
            });
            PcWithHost::Pass(kMillisecond);
            const emulation::Micros begin = emulation::Now();
            EXPECT_TRUE(operation.works(setup));
            EXPECT_EQ(emulation::Now() - begin > 50 * kSecond, operation.isFlow);
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
    const auto read = std::make_shared<NdefMessage>();
    EXPECT_EQ(setup.manager->ReadMessage(read), 0);
    std::uint8_t mac[6] = {};
    std::uint8_t model[4] = {};
    EXPECT_EQ(read->GetMac(mac) + read->GetModel(model), 0);
    EXPECT_EQ(mac[5], 4);
    EXPECT_EQ(model[3], 4);
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
        const auto message = setup.NewMessage(0x22);
        EXPECT_EQ(setup.manager->WriteMessage(message), 0);
        EXPECT_EQ(NfcManagerTestAccess::Message(*setup.manager), message) << "from now on";
        EXPECT_EQ(setup.log.Count("nfcDataRead init fail"), parseFailures);
        setup.log.TakeUnannounced();
        EXPECT_EQ(setup.manager->ReadMessage(target), 0);
        EXPECT_EQ(setup.manager->ReadMessage(nullptr), -1);
        std::uint8_t type = 1;
        target->GetPcType(type);
        EXPECT_EQ(type, 0) << "all but the PC type is filled";
    }
}

// The read-back of a message looks at one place more than the number thread's.
TEST(ReadBack, TakesANumberByAFewOfItsBytes) {
    PcWithTag setup;
    Number number = NumberOf(0x33);
    number[0] = number[1] = number[31] = 0;
    EXPECT_EQ(Renew(*setup.manager, number), 0);
    EXPECT_TRUE(PcWithHost::WaitForThreads(2));
    EXPECT_EQ(Joined(setup.log.TakeUnannounced()),
              "LocalWriteRand ReadRandNum failed, LocalWriteRand failed");
    EXPECT_EQ(setup.log.Count("LocalWriteRand begin ReadRandNum"), 3U);
    EXPECT_EQ(Renew(*setup.manager, number), 0);
    EXPECT_TRUE(setup.log.Has("WriteRandNum no need to update")) << "given again after a failure";
    for (const std::size_t place : {0U, 1U, 2U, 31U}) {
        Number one{};
        one[place] = 1;
        EXPECT_EQ(Renew(*setup.manager, one), 0);
        EXPECT_TRUE(PcWithHost::WaitForThreads(2));
        EXPECT_EQ(setup.log.TakeUnannounced().empty(), place != 2) << place;
        const auto message = setup.NewMessage();
        SetNumber(*message, one);
        EXPECT_EQ(setup.manager->WriteMessage(message), 0) << place;
    }
}

TEST(ReadBack, SaysWhichAttemptHasFailed) {
    PcWithTag setup;
    setup.SetFaults("read#1+=fail:31");
    EXPECT_FALSE(setup.manager->UpdateNfcData());
    EXPECT_EQ(Renew(*setup.manager, NumberOf(4)), 0);
    EXPECT_TRUE(PcWithHost::WaitForThreads(2));
    const std::string lines = Joined(setup.log.TakeUnannounced());
    const std::string last = "ReadRandNum ReadNfc failed, ReadRandNum failed 2, ";
    EXPECT_NE(lines.find(last + "UpdateNfcData ReadRandNum failed"), std::string::npos) << lines;
    EXPECT_NE(lines.find(last + "LocalWriteRand ReadRandNum failed"), std::string::npos) << lines;
}

TEST(WriteMessage, KeepsAUrlThatIsTooLongInMemory) {
    PcWithTag setup;
    const auto message = setup.NewMessage();
    message->SetUrl(std::string(163, 'v'));
    setup.log.Clear();
    EXPECT_EQ(setup.manager->WriteMessage(message), -1);
    EXPECT_EQ(Joined(setup.log.TakeUnannounced()),
              "length error, m_nfcData SetUrl failed, SetContent fail, UpdateNfcData failed");
    EXPECT_TRUE(setup.log.Has("NfcThreadCreate pass")) << "failed or not";
    EXPECT_EQ(Renew(*setup.manager, NumberOf(4)), -1) << "a number does not fit either";
    EXPECT_EQ(Joined(setup.log.TakeUnannounced()),
              "length error, m_nfcData SetRandomNumber failed, SetRandomNumber fail");
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
        EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage()), -1);
        setup.log.OnLine({});
        PcWithHost::Pass(kSecond);
        EXPECT_EQ(EventNumbers(), std::vector<int>{}) << "no visit that nobody closes";
        EXPECT_EQ(emulation::Live().requests + emulation::Live().threads, 0U);
        setup.log.TakeUnannounced();
    });
}

TEST(UpdateNfcContent, WritesWhatDiffers) {
    StartedPc setup({PcRoute::kI2c, PcRoute::kBle}, "fm11nt082c");
    const auto update = [&setup] { return NfcManagerTestAccess::UpdateNfcContent(*setup.manager); };
    EXPECT_TRUE(update());
    // The start makes two reads, the image ten.
    for (const auto& [faults, lastLines] :
         {std::pair{"read#3+=fail:31", "UpdateNfcContent ReadNfcContent failed"},
          std::pair{"read#13+=fail:31", "ReadRandNum ReadNfc failed, ReadRandNum failed"}}) {
        setup.SetFaults(faults);
        EXPECT_FALSE(update());
        EXPECT_NE(Joined(setup.log.TakeUnannounced()).find(lastLines), std::string::npos);
    }
    setup.SetFaults("");
    setup.log.Clear();
    EXPECT_EQ(setup.pc.bluetooth()->ImagesStored(), 1U) << "equal content is not written again";
    SetNumber(*NfcManagerTestAccess::Message(*setup.manager), NumberOf(0x22));
    RefuseBleWrites(3);
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
            SCOPED_TRACE(operation.name);
            StartedPc setup({PcRoute::kI2c}, "fanli");
            auto other = NfcManager::Create(setup.NewMessage(), &PcWithHost::Listen);
            EXPECT_TRUE(setup.manager->DeviceInit());
            OnThread([&other, end = static_cast<DWORD>(emulation::Random() % 1000)] {
                Sleep(end);
                other.reset();
            });
            EXPECT_TRUE(operation.works(setup));
            const NfcDeviceContext& context = GetNfcDeviceContext();
            EXPECT_EQ(context.chipKind, NfcChipFanli);
            EXPECT_TRUE(operation.name != std::string("WriteMessage") ||
                        context.spbDriverOps.load()->radioEnabled);
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

}  // namespace
