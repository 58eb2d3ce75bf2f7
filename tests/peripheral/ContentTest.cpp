// Whole images and the number alone, block by block.
#include <gtest/gtest.h>

#include "chip/NfcDeviceContext.h"
#include "peripheral/NfcProxy.h"
#include "peripheral/PeripheralState.h"
#include "tests/support/Desk.h"
#include "tests/support/ScriptedBus.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

using Texts = std::vector<std::string>;

NfcProxy& Proxy() {
    return *NfcProxy::Detached();
}

// A started chip, by default on the route with the shortest pauses: 10 ms behind each block.
struct StartedDesk : Desk {
    explicit StartedDesk(PcRoute route = PcRoute::kUsb, const std::string& chip = "fm11nt081")
        : Desk({route}, chip) {
        log.Announce("NFC_Error opening Spb driver");
        log.Announce("Nfc chip");
        EXPECT_TRUE(Proxy().InitNfcDevice());
        log.Clear();
        log.Announce("NFC Error");  // the transfer layer's own lines
        log.Announce("Nfc write spd");
        log.Announce("Nfc read spb");
    }
};

// The registers that went out, each with the number of bytes written or read there: "16+18" for a
// read of 18 bytes. Also counts the pauses.
std::string Blocks(const Texts& traffic, int& pauses) {
    Texts blocks;
    for (const std::string& text : traffic) {
        if (text[0] == 'W') {
            blocks.push_back(std::to_string(std::stoi(text.substr(2, 2), nullptr, 16) * 256 +
                                            std::stoi(text.substr(5, 2), nullptr, 16)));
            const std::size_t bytes = (text.size() - 1) / 3 - 2;
            if (bytes != 0) {
                blocks.back() += ":" + std::to_string(bytes);
            }
        } else if (text[0] == 'R') {
            blocks.back() += "+" + text.substr(2);
        } else {
            pauses += text == "sleep 10" ? 1 : 0;
        }
    }
    return Joined(blocks);
}

// The blocks of a whole image of `size` bytes: "16:16", "32:16", ... for a write.
std::string WholeImage(std::size_t size, const char* sign) {
    Texts blocks;
    for (std::size_t offset = 0; offset < size; offset += 16) {
        blocks.push_back(std::to_string(16 + offset) + sign +
                         std::to_string(std::min<std::size_t>(16, size - offset)));
    }
    return Joined(blocks);
}

TEST(Content, IsReadInBlocks) {
    hosted::UseScheduledClock({Seed()});
    StartedDesk desk;
    const struct {
        std::uint8_t type;
        std::uint8_t length;
        const char* faults;
        std::size_t size;    // 0: fails
        std::string blocks;  // the header first
        const char* told;
    } cases[] = {
        {3, 0, "", 3, "16+2, 16+3", ""},
        {3, 13, "", 16, "16+2, 16+16", ""},
        {3, 14, "", 17, "16+2, 16+16, 32+1", ""},
        {3, 253, "", 256, "16+2, " + WholeImage(256, "+"), ""},
        {3, 254, "", 0, "16+2", "nfcData too long, totalDatalen = 257"},
        {3, 255, "", 0, "16+2", "nfcData too long, totalDatalen = 258"},
        {0, 60, "", 0, "16+2", "ReadNfcContent: tag type is err"},
        {3, 100, "read#1=fail:31", 0, "16+2", ""},
        {3, 100, "read#6=fail:31", 0, "16+2, " + WholeImage(80, "+"),
         "NfcReadTag Read fail 1, block num: i = 4"},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(std::to_string(one.length) + one.faults);
        simulator::Bytes bytes(300);
        for (std::size_t i = 2; i < bytes.size(); ++i) {
            bytes[i] = static_cast<std::uint8_t>(i * 7);
        }
        bytes[0] = one.type;
        bytes[1] = one.length;
        {
            const hosted::DeviceLock lock;
            desk.pc.chip()->BackDoor().SetMemory(16, bytes);
        }
        desk.SetFaults(one.faults);
        std::string content = "untouched";
        int pauses = 0;
        BusRecorder recorder;
        EXPECT_EQ(Proxy().ReadNfcContent(content), one.size != 0);
        EXPECT_EQ(Blocks(recorder.Take(), pauses), one.blocks);
        EXPECT_EQ(Joined(desk.log.TakeUnannounced()), one.told);
        if (one.size != 0) {
            EXPECT_TRUE(std::equal(
                content.begin(), content.end(), bytes.begin(),
                [](char got, std::uint8_t put) { return static_cast<std::uint8_t>(got) == put; }));
            const std::size_t blocks = (one.size + 15) / 16;
            EXPECT_EQ(content.size(), one.size);
            EXPECT_EQ(pauses, static_cast<int>(blocks) + 1);  // behind the header too
            EXPECT_TRUE(desk.log.Has("NfcReadTag totalLen=" + std::to_string(one.size) +
                                     ", block num=" + std::to_string(blocks)));
        } else {
            EXPECT_EQ(content, "untouched");
        }
    }
}

TEST(Content, IsWrittenInBlocksAndFromTheStartAgain) {
    hosted::UseScheduledClock({Seed()});
    StartedDesk desk;
    const struct {
        std::size_t size;
        const char* faults;
        bool result;
        std::string blocks;
        int pauses;
        const char* told;
        std::size_t retries;
    } cases[] = {
        {16, "", true, "16:16", 1, "", 0},
        {17, "", true, "16:16, 32:1", 2, "", 0},
        {0, "", true, "16", 1, "", 0},
        {255, "", true, WholeImage(255, ":"), 16, "", 0},
        {256, "", false, "", 0, "", 0},
        {128, "write#5=fail:31", true, WholeImage(80, ":") + ", " + WholeImage(128, ":"), 12,
         "NfcWriteTag reg: 80 fail 1, block num: i = 4", 1},
        {40, "write#2=fail:31,write#4+=fail:31", false, "16:16, 32:16, 16:16, 32:16, 16:16", 2,
         "NfcWriteTag reg: 32 fail 1, block num: i = 1, "
         "NfcWriteTag reg: 32 fail 1, block num: i = 1, "
         "NfcWriteTag reg: 16 fail 1, block num: i = 0",
         3},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(std::to_string(one.size) + one.faults);
        desk.SetFaults(one.faults);
        const std::string image(one.size, static_cast<char>(one.size));
        desk.log.Clear();
        int pauses = 0;
        BusRecorder recorder;
        EXPECT_EQ(Proxy().WriteNfcContent(image), one.result);
        EXPECT_EQ(Blocks(recorder.Take(), pauses), one.blocks);
        EXPECT_EQ(pauses, one.pauses);
        EXPECT_EQ(Joined(desk.log.TakeUnannounced()), one.told);
        for (std::size_t attempt = 0; attempt < 3; ++attempt) {
            EXPECT_EQ(desk.log.Has("Nfc WriteTag retry: " + std::to_string(attempt)),
                      attempt < one.retries);
        }
        EXPECT_EQ(desk.log.Count("Nfc CheckWriteTag ret: 1"), one.result ? 1U : 0U);
        if (one.result) {
            EXPECT_EQ(desk.ImageOnChip(one.size), image);
        }
    }
}

TEST(Content, IsWrittenAgainWhenFanliFindsAFault) {
    hosted::UseScheduledClock({Seed()});
    StartedDesk desk(PcRoute::kI2c, "fanli");
    EXPECT_FALSE(desk.pc.chip()->BackDoor().RadioOn());  // until a message is on it
    {
        const hosted::DeviceLock lock;
        desk.pc.chip()->BackDoor().FailWriteCheck(0x30);
    }
    EXPECT_TRUE(Proxy().WriteNfcContent(std::string(64, 'f')));
    EXPECT_TRUE(
        HasInOrder(desk.log, {"Nfc CheckWriteTag ret: 0", "Nfc WriteTag retry: 0",
                              "NfcWriteTag totalLen=64, block num=4", "Nfc CheckWriteTag ret: 1"}));
    EXPECT_EQ(desk.ImageOnChip(64), std::string(64, 'f'));

    desk.SetFaults("write#5=fail:31");  // the check's own head
    desk.log.Clear();
    desk.log.Announce("NfcExtend Check WriteTag Success: f0f8 failed");
    EXPECT_TRUE(Proxy().WriteNfcContent(std::string(64, 'g')));
    EXPECT_EQ(desk.log.Count("Nfc WriteTag retry: 0"), 1U);
}

// The chips need the pauses: without them both families notice.
TEST(Content, IsLostWithoutThePauses) {
    hosted::UseScheduledClock({Seed()});
    {
        StartedDesk desk;
        g_nfcOpDelayMs = 0;
        EXPECT_FALSE(Proxy().WriteNfcContent(std::string(64, 'f')));
        EXPECT_EQ(desk.log.TakeUnannounced().at(0), "NfcWriteTag reg: 32 fail 1, block num: i = 1");
        CloseHandle(DeviceHandle.exchange(nullptr));
    }
    StartedDesk desk(PcRoute::kI2c, "fanli");
    g_nfcOpDelayMs = 0;
    EXPECT_FALSE(Proxy().WriteNfcContent(std::string(64, 'f')));
    EXPECT_EQ(desk.log.Count("Nfc CheckWriteTag ret: 0"), 3U);
    EXPECT_NE(desk.ImageOnChip(64), std::string(64, 'f'));
}

TEST(Content, GoesToAKeyboardOnlyWhenItIsConnected) {
    hosted::UseScheduledClock({Seed()});
    StartedDesk desk(PcRoute::kHid);
    desk.log.Announce("NFC_");
    BusRecorder recorder;
    std::string content = "untouched";
    std::uint8_t number[32] = {0x77};
    EXPECT_TRUE(Proxy().WriteNfcContent(std::string(64, 'f')));
    EXPECT_TRUE(Proxy().ReadRandNumber(number));
    EXPECT_EQ(number[0], 0x77);
    EXPECT_FALSE(Proxy().ReadNfcContent(content));
    EXPECT_EQ(desk.log.TakeUnannounced(), Texts{"spbDriverOps == nullptr"});
    for (const std::string& text : recorder.Take()) {
        EXPECT_NE(text[0], 'W') << text;
    }
    AnnounceStop(desk.log);
}

TEST(Number, IsReadInTwoHalves) {
    hosted::UseScheduledClock({Seed()});
    StartedDesk desk;
    const Number old = NumberOf(0x0D);
    const struct {
        std::uint8_t pcModel;
        const char* faults;
        bool result;
        const char* blocks;
        int pauses;  // behind a failed half, too
        const char* told;
    } cases[] = {
        {2, "", true, "73+16, 89+16", 2, ""},
        {5, "", true, "122+16, 138+16", 2, ""},
        {8, "", true, "122+16, 138+16", 2, ""},
        {7, "", false, "", 0, "NFC g_pcModel type unsupport"},
        {5, "read#1=fail:31", false, "122+16", 1,
         "NFC ReadRandNumber fail 1, ReadRandNum reg: 122 failed"},
        {2, "read#2=short:1", false, "73+16, 89+16", 2,
         "NFC ReadRandNumber fail 2, ReadRandNum reg: 73 failed"},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(std::to_string(one.pcModel) + one.faults);
        g_pcModel = one.pcModel;
        g_tagRandNumber.value.Set(old.data());
        simulator::Bytes bytes(32);
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            bytes[i] = static_cast<std::uint8_t>(0x80 + i);
        }
        {
            const hosted::DeviceLock lock;
            desk.pc.chip()->BackDoor().SetMemory(one.pcModel == 2 ? 73 : 122, bytes);
        }
        desk.SetFaults(one.faults);
        Number number{};
        int pauses = 0;
        BusRecorder recorder;
        EXPECT_EQ(Proxy().ReadRandNumber(number.data()), one.result);
        EXPECT_EQ(Blocks(recorder.Take(), pauses), one.blocks);
        EXPECT_EQ(pauses, one.pauses);
        EXPECT_EQ(Joined(desk.log.TakeUnannounced()), one.told);
        if (one.result) {
            EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), number.begin()));
        }
        EXPECT_EQ(g_tagRandNumber.value.Get(), one.result ? number : old);
    }
}

TEST(Number, IsClearedLocallyWhenThereIsNone) {
    hosted::UseScheduledClock({Seed()});
    LogRecorder log;
    EXPECT_TRUE(Proxy().SetLocalNum(NumberOf(9).data()));
    EXPECT_EQ(g_localNumber.value.Get(), NumberOf(9));
    EXPECT_FALSE(Proxy().SetLocalNum(nullptr));
    EXPECT_EQ(g_localNumber.value.Get(), NumberOf(0));
    EXPECT_EQ(log.TakeUnannounced(), Texts{"SetLocalNum memcpy_s fail"});
}

}  // namespace
