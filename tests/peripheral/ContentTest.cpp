// Whole images and the number alone, block by block.
#include <gtest/gtest.h>

#include <cstring>

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
// read of 18 bytes. A pause behind a block is a dot.
std::string Blocks(const Texts& traffic) {
    std::string blocks;
    for (const std::string& text : traffic) {
        if (text[0] == 'W') {
            const int reg = std::stoi(text.substr(2, 2) + text.substr(5, 2), nullptr, 16);
            const std::size_t bytes = (text.size() - 1) / 3 - 2;
            blocks += " " + std::to_string(reg) + (bytes != 0 ? ":" + std::to_string(bytes) : "");
        } else if (text[0] == 'R') {
            blocks += "+" + text.substr(2);
        } else if (text == "sleep 10") {
            blocks += ".";
        }
    }
    return blocks;
}

// The blocks of a whole image of `size` bytes: " 16:16. 32:16." ... for a write.
std::string WholeImage(std::size_t size, const char* sign) {
    std::string blocks;
    for (std::size_t offset = 0; offset < size; offset += 16) {
        blocks += " " + std::to_string(16 + offset) + sign +
                  std::to_string(std::min<std::size_t>(16, size - offset)) + ".";
    }
    return blocks;
}

void SetMemory(Desk& desk, unsigned reg, const std::string& bytes) {
    const hosted::DeviceLock lock;
    desk.pc.chip()->BackDoor().SetMemory(reg, simulator::Bytes(bytes.begin(), bytes.end()));
}

// Bytes that differ from each other.
std::string Counted(std::size_t size, int step) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(static_cast<int>(i + 1) * step);
    }
    return bytes;
}

TEST(Content, IsReadInBlocks) {
    hosted::UseScheduledClock({Seed()});
    StartedDesk desk;
    const struct {
        int type, length;
        const char* faults;
        std::size_t size;    // 0: fails
        std::string blocks;  // behind the header
        const char* told;
    } cases[] = {
        {3, 0, "", 3, ". 16+3.", ""},
        {3, 14, "", 17, ". 16+16. 32+1.", ""},
        {3, 253, "", 256, "." + WholeImage(256, "+"), ""},
        {3, 254, "", 0, ".", "nfcData too long, totalDatalen = 257"},
        {0, 60, "", 0, ".", "ReadNfcContent: tag type is err"},
        {3, 100, "read#1=fail:31", 0, "", ""},
        {3, 100, "read#3=fail:31", 0, ". 16+16. 32+16", "NfcReadTag Read fail 1, block num: i = 1"},
    };
    for (const auto& [type, length, faults, size, blocks, told] : cases) {
        SCOPED_TRACE(std::to_string(length) + faults);
        std::string image = Counted(300, 7);
        image[0] = static_cast<char>(type);
        image[1] = static_cast<char>(length);
        SetMemory(desk, 16, image);
        desk.SetFaults(faults);
        std::string content = "untouched";
        BusRecorder recorder;
        EXPECT_EQ(Proxy().ReadNfcContent(content), size != 0);
        EXPECT_EQ(Blocks(recorder.Take()), " 16+2" + blocks);
        EXPECT_EQ(Joined(desk.log.TakeUnannounced()), told);
        EXPECT_EQ(content, size != 0 ? image.substr(0, size) : "untouched");
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
        const char* told;
        std::size_t retries;
    } cases[] = {
        {17, "", true, " 16:16. 32:1.", "", 0},
        {0, "", true, " 16.", "", 0},
        {255, "", true, WholeImage(255, ":"), "", 0},
        {256, "", false, "", "", 0},
        {128, "write#2=fail:31", true, " 16:16. 32:16" + WholeImage(128, ":"),
         "NfcWriteTag reg: 32 fail 1, block num: i = 1", 1},
        {40, "write#2=fail:31,write#4+=fail:31", false, " 16:16. 32:16 16:16. 32:16 16:16",
         "NfcWriteTag reg: 32 fail 1, block num: i = 1, "
         "NfcWriteTag reg: 32 fail 1, block num: i = 1, "
         "NfcWriteTag reg: 16 fail 1, block num: i = 0",
         3},
    };
    for (const auto& [size, faults, result, blocks, told, retries] : cases) {
        SCOPED_TRACE(std::to_string(size) + faults);
        desk.SetFaults(faults);
        const std::string image = Counted(size, static_cast<int>(size));
        desk.log.Clear();
        BusRecorder recorder;
        EXPECT_EQ(Proxy().WriteNfcContent(image), result);
        EXPECT_EQ(Blocks(recorder.Take()), blocks);
        EXPECT_EQ(Joined(desk.log.TakeUnannounced()), told);
        EXPECT_TRUE(retries == 0 ||
                    desk.log.Has("Nfc WriteTag retry: " + std::to_string(retries - 1)));
        EXPECT_EQ(desk.log.Count("Nfc CheckWriteTag ret: 1"), result ? 1U : 0U);
        EXPECT_TRUE(!result || desk.ImageOnChip(size) == image);
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
}

TEST(Number, IsReadInTwoHalves) {
    hosted::UseScheduledClock({Seed()});
    StartedDesk desk;
    const struct {
        std::uint8_t pcModel;
        const char* faults;
        bool result;
        const char* blocks;  // a pause behind a failed half, too
        const char* told;
    } cases[] = {
        {2, "", true, " 73+16. 89+16.", ""},
        {5, "", true, " 122+16. 138+16.", ""},
        {8, "", true, " 122+16. 138+16.", ""},
        {7, "", false, "", "NFC g_pcModel type unsupport"},
        {5, "read#1=fail:31", false, " 122+16.",
         "NFC ReadRandNumber fail 1, ReadRandNum reg: 122 failed"},
        {2, "read#2=short:1", false, " 73+16. 89+16.",
         "NFC ReadRandNumber fail 2, ReadRandNum reg: 73 failed"},
    };
    const std::string bytes = Counted(32, 3);
    const Number old = NumberOf(0x0D);
    for (const auto& [pcModel, faults, result, blocks, told] : cases) {
        SCOPED_TRACE(std::to_string(pcModel) + faults);
        g_pcModel = pcModel;
        g_tagRandNumber.value.Set(old.data());
        SetMemory(desk, pcModel == 2 ? 73 : 122, bytes);
        desk.SetFaults(faults);
        Number number{};
        BusRecorder recorder;
        EXPECT_EQ(Proxy().ReadRandNumber(number.data()), result);
        EXPECT_EQ(Blocks(recorder.Take()), blocks);
        EXPECT_EQ(Joined(desk.log.TakeUnannounced()), told);
        EXPECT_TRUE(!result || std::memcmp(number.data(), bytes.data(), bytes.size()) == 0);
        EXPECT_EQ(g_tagRandNumber.value.Get(), result ? number : old);
    }
}

}  // namespace
