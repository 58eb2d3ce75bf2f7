// Whole images and the number alone, block by block.
#include <gtest/gtest.h>

#include <cstring>

#include "chip/NfcDeviceContext.h"
#include "events/EventState.h"
#include "routes/NfcProxy.h"
#include "routes/RouteState.h"
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

// A started chip; by default with the shortest pauses, 10 ms behind each block.
struct StartedDesk : Desk {
    explicit StartedDesk(PcRoute route = PcRoute::kUsb, const char* chip = "fm11nt081")
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

// Bytes that differ from each other.
std::string Counted(std::size_t size, int step) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(static_cast<int>(i + 1) * step);
    }
    return bytes;
}

const char kFirstFailed[] = "NfcWriteTag reg: 32 fail 1, block num: i = 1";
const char kAllFailed[] =
    "NfcWriteTag reg: 32 fail 1, block num: i = 1, NfcWriteTag reg: 32 fail 1, block num: i = 1, "
    "NfcWriteTag reg: 16 fail 1, block num: i = 0";

const struct {
    const char* operation;  // "read" or "write" an image, find "none", read the "number"
    int size;               // of the image; of a number the PC type
    const char* faults;
    bool result;
    const char* blocks;  // "many" are not compared
    const char* told;
} kMoves[] = {
    {"read", 3, "", true, " 16+2. 16+3.", ""},
    {"read", 17, "", true, " 16+2. 16+16. 32+1.", ""},
    {"read", 256, "", true, "many", ""},
    {"read", 257, "", false, " 16+2.", "nfcData too long, totalDatalen = 257"},
    {"none", 60, "", false, " 16+2.", "ReadNfcContent: tag type is err"},
    {"read", 100, "read#1=fail:31", false, " 16+2", ""},
    {"read", 100, "read#3=fail:31", false, " 16+2. 16+16. 32+16",
     "NfcReadTag Read fail 1, block num: i = 1"},
    {"write", 0, "", true, " 16.", ""},
    {"write", 17, "", true, " 16:16. 32:1.", ""},
    {"write", 255, "", true, "many", ""},
    {"write", 256, "", false, "", ""},
    // From the start again, three times in all.
    {"write", 40, "write#2=fail:31", true, " 16:16. 32:16 16:16. 32:16. 48:8.", kFirstFailed},
    {"write", 40, "write#2=fail:31,write#4+=fail:31", false, " 16:16. 32:16 16:16. 32:16 16:16",
     kAllFailed},
    {"number", 2, "", true, " 73+16. 89+16.", ""},
    {"number", 5, "", true, " 122+16. 138+16.", ""},
    {"number", 8, "", true, " 122+16. 138+16.", ""},
    {"number", 7, "", false, "", "NFC g_pcModel type unsupport"},
    {"number", 5, "read#1=fail:31", false, " 122+16.",
     "NFC ReadRandNumber fail 1, ReadRandNum reg: 122 failed"},
    {"number", 2, "read#2=short:1", false, " 73+16. 89+16.",
     "NFC ReadRandNumber fail 2, ReadRandNum reg: 73 failed"},
};

TEST(Content, MovesInBlocksWholeOrNotAtAll) {
    hosted::UseScheduledClock({Seed()});
    StartedDesk desk;
    for (const auto& [operation, size, faults, result, blocks, told] : kMoves) {
        SCOPED_TRACE(operation + std::to_string(size) + faults);
        std::string image = Counted(300, 2 * size + 1);
        image[0] = operation[1] == 'o' ? 0 : 3;
        image[1] = static_cast<char>(size - 3);
        const bool writes = operation[0] == 'w';
        desk.pc.chip()->BackDoor().SetMemory(
            16, writes ? simulator::Bytes(300) : simulator::Bytes(image.begin(), image.end()));
        desk.SetFaults(faults);
        const Number old = NumberOf(0x0D);
        g_tagRandNumber.value.Set(old.data());
        g_pcModel = static_cast<std::uint8_t>(size);
        std::string moved = "untouched";
        Number number{};
        BusRecorder recorder;
        if (operation[1] == 'u') {
            EXPECT_EQ(Proxy().ReadRandNumber(number.data()), result);
            image = image.substr(size == 2 ? 73 - 16 : 122 - 16, 32);
            EXPECT_TRUE(!result || std::memcmp(number.data(), image.data(), number.size()) == 0);
            EXPECT_EQ(g_tagRandNumber.value.Get(), result ? number : old);
        } else if (writes) {
            image.resize(static_cast<std::size_t>(size));
            EXPECT_EQ(Proxy().WriteNfcContent(image), result);
            EXPECT_TRUE(!result || desk.ImageOnChip(image.size()) == image);
        } else {
            EXPECT_EQ(Proxy().ReadNfcContent(moved), result);
            EXPECT_EQ(moved,
                      result ? image.substr(0, static_cast<std::size_t>(size)) : "untouched");
        }
        const std::string traffic = Blocks(recorder.Take());
        EXPECT_TRUE(traffic == blocks || std::string(blocks) == "many") << traffic;
        EXPECT_EQ(Joined(desk.log.TakeUnannounced()), told);
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

}  // namespace
