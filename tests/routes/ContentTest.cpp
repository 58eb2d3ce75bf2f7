// Whole images and the number alone: on a chip block by block, over the keyboards page by page, and
// on a PC with two routes.
#include <numeric>

#include "platform/services/standin/ClientBackDoor.h"
#include "routes/NfcProxy.h"
#include "routes/PcType.h"
#include "tests/support/PcWithHost.h"

using LinkDockService::BleCall;
using namespace testing_support;

namespace {

using Operation = std::function<bool(PcWithHost& setup)>;

// The registers that went out, each with the number of bytes written or read there: "16+18" for a
// read of 18 bytes. A pause after a block is a dot.
std::string Blocks(const Texts& traffic) {
    std::string blocks;
    for (const std::string& text : traffic) {
        if (text[0] == 'W') {
            const int reg = std::stoi(text.substr(2, 2) + text.substr(5, 2), nullptr, 16);
            const std::size_t bytes = (text.size() - 1) / 3 - 2;
            blocks += " " + std::to_string(reg) + (bytes != 0 ? ":" + std::to_string(bytes) : "");
        } else if (text != "sleep 50") {  // between address and answer
            blocks += text == "sleep 10" ? "." : "+" + text.substr(2);
        }
    }
    return blocks;
}

// An image of bytes that differ from each other. Its head counts all but three of them.
std::string Image(std::size_t size) {
    std::string image(size, '\0');
    std::iota(image.begin(), image.end(), '\3');
    image[1] = static_cast<char>(size - 3);
    return image;
}

Operation Read(std::size_t size) {
    return [image = Image(size)](PcWithHost& setup) {
        setup.pc.chip()->BackDoor().SetMemory(16, simulator::Bytes(image.begin(), image.end()));
        std::string content = "untouched";
        const platform::Lock lock(ContentLock::m_mutex);
        const bool result = NfcProxy::ReadNfcContent(content);
        EXPECT_EQ(content, result ? image : "untouched");
        return result;
    };
}
Operation Write(std::size_t size) {
    return [image = Image(size + 3).substr(3)](PcWithHost& setup) {
        setup.pc.chip()->BackDoor().SetMemory(16, simulator::Bytes(256));
        const platform::Lock lock(ContentLock::m_mutex);
        const bool result = NfcProxy::WriteNfcContent(image);
        EXPECT_TRUE(!result || setup.ImageOnChip(image.size()) == image);
        return result;
    };
}
const Operation kReadNumber = [](PcWithHost& /*setup*/) {
    Number number{};
    const platform::Lock lock(ContentLock::m_mutex);
    return NfcProxy::ReadRandNumber(number.data());
};

const struct {
    Operation operation;
    const char* faults = "";
    bool result = false;
    std::string blocks;
    std::string errors;
} kCases[] = {
    {Read(3), "", true, " 16+2. 16+3.", ""},
    {Read(17), "", true, " 16+2. 16+16. 32+1.", ""},
    {Read(256), "", true,
     " 16+2. 16+16. 32+16. 48+16. 64+16. 80+16. 96+16. 112+16. 128+16. 144+16. 160+16. 176+16."
     " 192+16. 208+16. 224+16. 240+16. 256+16.",
     ""},
    {Read(257), "", false, " 16+2.", "nfcData too long, totalDatalen = 257"},
    {Read(100), "read#1=fail:31", false, " 16+2", ""},
    {Read(100), "read#3=fail:31", false, " 16+2. 16+16. 32+16",
     "NfcReadTag Read fail 1, block num: i = 1"},
    {Write(0), "", true, " 16.", ""},
    {Write(255), "", true,
     " 16:16. 32:16. 48:16. 64:16. 80:16. 96:16. 112:16. 128:16. 144:16. 160:16. 176:16. 192:16."
     " 208:16. 224:16. 240:16. 256:15.",
     ""},
    {Write(256), "", false, "", ""},
    // From the start again, three times in all.
    {Write(40), "write#2=fail:31", true, " 16:16. 32:16 16:16. 32:16. 48:8.",
     "NfcWriteTag reg: 32 fail 1, block num: i = 1"},
    {Write(40), "write#2=fail:31,write#4+=fail:31", false, " 16:16. 32:16 16:16. 32:16 16:16",
     "NfcWriteTag reg: 32 fail 1, block num: i = 1, NfcWriteTag reg: 32 fail 1, block num: i = 1, "
     "NfcWriteTag reg: 16 fail 1, block num: i = 0"},
    {kReadNumber, "", true, " 122+16. 138+16.", ""},
    {[](PcWithHost& setup) {
         const std::uint8_t before = g_pcModel.exchange(4);
         const bool result = kReadNumber(setup);
         g_pcModel = before;
         return result;
     },
     "", false, "", "NFC g_pcModel type unsupport"},
    {kReadNumber, "read#1=fail:31", false, " 122+16.",
     "NFC ReadRandNumber fail 1, ReadRandNum reg: 122 failed"},
    {kReadNumber, "read#2=short:1", false, " 122+16. 138+16.",
     "NFC ReadRandNumber fail 2, ReadRandNum reg: 122 failed"},
};

TEST(Content, MovesInBlocksWholeOrNotAtAll) {
    StartedPc setup({PcRoute::kUsb});
    setup.log.Announce("NFC Error", "Nfc write spd", "Nfc read spb");  // of the transfers
    BusRecorder recorder;
    for (const auto& [operation, faults, result, blocks, errors] : kCases) {
        SCOPED_TRACE(blocks + errors);
        setup.SetFaults(faults);
        recorder.Take();
        EXPECT_EQ(operation(setup), result);
        EXPECT_EQ(Blocks(recorder.Take(emulation::CurrentThread())), blocks);
        EXPECT_EQ(Joined(setup.log.TakeUnannounced()), errors);
    }
}

TEST(Content, IsWrittenAgainWhenFanliFindsAFault) {
    StartedPc setup({PcRoute::kI2c}, "fanli");
    setup.log.Clear();
    setup.pc.chip()->BackDoor().FailWriteCheck(0x30);
    EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(0x33)), 0);
    EXPECT_TRUE(HasInOrder(setup.log,
                           {"Nfc CheckWriteTag ret: 0", "Nfc WriteTag retry: 0",
                            "NfcWriteTag totalLen=143, block num=9", "Nfc CheckWriteTag ret: 1"}));
    EXPECT_EQ(setup.NumberOnChip(), NumberOf(0x33));
}

// The number's register depends on the PC type.
void BothRoutes(PcRoute wired, std::uint8_t pcType, unsigned numberRegister) {
    StartedPc setup({wired, PcRoute::kBle}, "fm11nt082c", pcType);
    // Each route's events carry the number as last read there.
    setup.pc.bluetooth()->SetMemory(numberRegister, simulator::Bytes(32, 0x22));
    std::uint8_t number[32] = {};
    EXPECT_EQ(setup.manager->ReadRandNum(number), 0);
    EXPECT_EQ(number[0], 0x11) << "the wired route is read last";
    EXPECT_EQ(setup.manager->IsActivePC(), wired == PcRoute::kI2c);
    setup.pc.TapPhone(wired, 0, kSecond);
    setup.pc.TapPhone(PcRoute::kBle, 100 * kMillisecond, 500 * kMillisecond);
    EXPECT_TRUE(PcWithHost::WaitForEvents(4, 20 * kSecond));
    EXPECT_EQ(EventNumbers(static_cast<int>(wired) + 1), (std::vector<int>{3, 1}));
    EXPECT_EQ(EventNumbers(4), (std::vector<int>{3, 1}));
    for (const ReceivedEvent& heard : EventsSoFar()) {
        EXPECT_EQ(heard.number, NumberOf(heard.route == 4 ? 0x22 : 0x11));
    }
    // A Bluetooth write that fails keeps the image from the other routes; a read does not.
    setup.log.Announce("[NFC] BleClientWrite ERROR", "UpdateNfcData ");
    for (const unsigned nth : {1U, 2U, 3U}) {
        LinkDockService::FailCall(BleCall::kWrite, nth);
    }
    setup.log.Clear();
    EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(0x33)), -1);
    EXPECT_FALSE(setup.log.Has("NfcHidWrite success!") ||
                 setup.log.Has("Nfc CheckWriteTag ret: 1"));
    LinkDockService::FailCall(BleCall::kWrite, 1);
    EXPECT_EQ(setup.manager->ReadRandNum(number), 0);
    EXPECT_TRUE(
        HasInOrder(setup.log, {"[NFC] BleClientWrite ERROR", "[NFC_log] BtReadRandomNum fail "}));
    EXPECT_EQ(number[0], 0x11);
}

TEST(Routes, AWiredTagAndABluetoothKeyboard) {
    ForEachSeed(10, [] { BothRoutes(PcRoute::kI2c, 2, 73); });
    ForEachSeed(10, [] { BothRoutes(PcRoute::kUsb, 5, 122); });
    ForEachSeed(10, [] { BothRoutes(PcRoute::kHid, 8, 122); });
}

// The simulated keyboards are strict with every head, page and length.
TEST(Frames, ReachBothKeyboardsWholeOrNotAtAll) {
    StartedPc setup({PcRoute::kHid, PcRoute::kBle});
    simulator::KeyboardMcu& hid = *setup.pc.keyboard();
    simulator::BluetoothKeyboard& ble = *setup.pc.bluetooth();
    simulator::Bytes image(1000);
    std::iota(image.begin(), image.end(), std::uint8_t{1});
    for (const auto& [length, pages] :
         {std::pair{58, 1U}, {888, 15U}, {59, 2U}, {889, 0U}, {-1, 0U}}) {
        SCOPED_TRACE(length);
        const std::size_t before = hid.ReportsSeen();
        const platform::Lock lock(ContentLock::m_mutex);
        EXPECT_EQ(NfcProxy::NfcHidWrite(image.data(), length), pages != 0);
        EXPECT_EQ(NfcProxy::BtWrite(image.data(), length), pages != 0);
        EXPECT_EQ(hid.ReportsSeen() - before, pages);
        if (pages != 0) {
            const simulator::Bytes sent(image.begin(), image.begin() + length);
            EXPECT_EQ(hid.Image(), sent);
            EXPECT_EQ(ble.Image(), sent);
        }
    }
    EXPECT_EQ(hid.ImagesStored(), ble.ImagesStored()) << "what was refused has not been sent";
    EXPECT_EQ(hid.DirtyTails() + hid.Refusals().size() + ble.Refusals().size(), 0U);
}

}  // namespace
