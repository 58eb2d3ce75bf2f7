// Whole images and the number alone: on a chip block by block, over the keyboards page by page, and
// on a PC with two routes.
#include <numeric>

#include "routes/NfcProxy.h"
#include "routes/PcType.h"
#include "tests/support/PcWithHost.h"

using namespace testing_support;

namespace {

using Operation = std::function<bool(PcWithHost& setup)>;

constexpr bool kWorks = true;
constexpr bool kFails = false;

std::string Block(std::size_t bytes, std::size_t reg) {
    return std::to_string(bytes) + " at " + std::to_string(reg);
}

// What a chip's traffic moves, in words: "16 at 32, pause". Address and answer of a read are one.
std::string InWords(const Texts& traffic) {
    Texts words;
    for (const std::string& text : traffic) {
        if (text[0] == 'W') {
            const int reg = std::stoi(text.substr(2, 2) + text.substr(5, 2), nullptr, 16);
            words.push_back(Block((text.size() - 1) / 3 - 2, static_cast<std::size_t>(reg)));
        } else if (text[0] == 'R') {
            words.back().replace(0, 1, text.substr(2));
        } else if (text != "sleep 50") {  // between address and answer
            words.push_back(text == "sleep 10" ? "pause" : text);
        }
    }
    return Joined(words);
}

// A whole image of this size, in words.
std::string Blocks(std::size_t size) {
    Texts words;
    for (std::size_t done = 0; done < size; done += 16) {
        words.push_back(Block(std::min<std::size_t>(size - done, 16), 16 + done) + ", pause");
    }
    return Joined(words);
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

const std::string kSecondWriteFailed = "NfcWriteTag reg: 32 fail 1, block num: i = 1";

const struct {
    Operation operation;
    bool result;
    std::string moved;  // in words
    const char* faults = "";
    std::string errors = "";
} kCases[] = {
    {Read(3), kWorks, "2 at 16, pause, 3 at 16, pause"},
    {Read(17), kWorks, "2 at 16, pause, 16 at 16, pause, 1 at 32, pause"},
    {Read(256), kWorks, "2 at 16, pause, " + Blocks(256)},
    {Read(257), kFails, "2 at 16, pause", "", "nfcData too long, totalDatalen = 257"},
    {Read(100), kFails, "2 at 16", "read#1=fail:31"},
    {Read(100), kFails, "2 at 16, pause, 16 at 16, pause, 16 at 32", "read#3=fail:31",
     "NfcReadTag Read fail 1, block num: i = 1"},
    {Write(0), kWorks, "0 at 16, pause"},
    {Write(255), kWorks, Blocks(255)},
    {Write(256), kFails, ""},
    // From the start again, three times in all.
    {Write(40), kWorks, "16 at 16, pause, 16 at 32, " + Blocks(40), "write#2=fail:31",
     kSecondWriteFailed},
    {Write(40), kFails, "16 at 16, pause, 16 at 32, 16 at 16, pause, 16 at 32, 16 at 16",
     "write#2=fail:31,write#4+=fail:31",
     kSecondWriteFailed + ", " + kSecondWriteFailed +
         ", NfcWriteTag reg: 16 fail 1, block num: i = 0"},
    {kReadNumber, kWorks, "16 at 122, pause, 16 at 138, pause"},
    {kReadNumber, kFails, "16 at 122, pause", "read#1=fail:31",
     "NFC ReadRandNumber fail 1, ReadRandNum reg: 122 failed"},
    {kReadNumber, kFails, "16 at 122, pause, 16 at 138, pause", "read#2=short:1",
     "NFC ReadRandNumber fail 2, ReadRandNum reg: 122 failed"},
};

TEST(Content, MovesInBlocksWholeOrNotAtAll) {
    StartedPc setup({PcRoute::kUsb});
    setup.log.Announce("NFC Error", "Nfc write spd", "Nfc read spb");  // of the transfers
    BusRecorder recorder;
    for (const auto& [operation, result, moved, faults, errors] : kCases) {
        SCOPED_TRACE(moved + errors);
        setup.SetFaults(faults);
        recorder.Take();
        EXPECT_EQ(operation(setup), result);
        EXPECT_EQ(InWords(recorder.Take(emulation::CurrentThread())), moved);
        EXPECT_EQ(Joined(setup.log.TakeUnannounced()), errors);
    }
    g_pcModel = 4;
    EXPECT_FALSE(kReadNumber(setup));
    EXPECT_EQ(setup.log.TakeUnannounced(), Texts{"NFC g_pcModel type unsupport"});
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

void BothRoutes(PcRoute wired, std::uint8_t pcType) {
    StartedPc setup({wired, PcRoute::kBle}, "fm11nt082c", pcType);
    // Each route's events carry the number as last read there.
    setup.pc.bluetooth()->SetMemory(setup.NumberRegister(), simulator::Bytes(32, 0x22));
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
    RefuseBleWrites(3);
    setup.log.Clear();
    EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(0x33)), -1);
    EXPECT_FALSE(setup.log.Has("NfcHidWrite success!") ||
                 setup.log.Has("Nfc CheckWriteTag ret: 1"));
    RefuseBleWrites(1);
    EXPECT_EQ(setup.manager->ReadRandNum(number), 0);
    EXPECT_TRUE(
        HasInOrder(setup.log, {"[NFC] BleClientWrite ERROR", "[NFC_log] BtReadRandomNum fail "}));
    EXPECT_EQ(number[0], 0x11);
}

TEST(Routes, WorkSideBySideWithAVisitAndANumberEach) {
    ForEachSeed(10, [] { BothRoutes(PcRoute::kI2c, 2); });
    ForEachSeed(10, [] { BothRoutes(PcRoute::kUsb, 5); });
    ForEachSeed(10, [] { BothRoutes(PcRoute::kHid, 8); });
}

// The simulated keyboards are strict with every head, page and length.
TEST(Frames, ReachBothKeyboardsWholeOrNotAtAll) {
    StartedPc setup({PcRoute::kHid, PcRoute::kBle});
    simulator::KeyboardMcu& hid = *setup.pc.keyboard();
    simulator::BluetoothKeyboard& ble = *setup.pc.bluetooth();
    simulator::Bytes image(1000);
    std::iota(image.begin(), image.end(), std::uint8_t{1});
    for (const auto& [length, pages] :
         {std::pair{58, 1U}, {888, 15U}, {59, 2U}, {0, 1U}, {889, 0U}, {-1, 0U}}) {
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

TEST(Routes, RefuseANullPlaceForTheNumber) {
    StartedPc setup({PcRoute::kHid, PcRoute::kBle});
    setup.log.TakeMarked();
    const platform::Lock lock(ContentLock::m_mutex);
    EXPECT_FALSE(NfcProxy::ReadRandNumber(nullptr));
    const Texts lines = setup.log.TakeMarked();
    const auto from = std::find(lines.begin(), lines.end(), "E NFC ReadRandNumber memcpy_s fail");
    EXPECT_EQ(Joined(Texts(from, lines.end())),
              "E NFC ReadRandNumber memcpy_s fail, W [NFC_log] BtReadRandomNum fail , "
              "E NFC ReadRandNumber memcpy_s fail");
}

}  // namespace
