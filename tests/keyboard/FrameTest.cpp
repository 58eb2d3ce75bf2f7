// The frames to the keyboards, byte for byte.
#include <gtest/gtest.h>

#include <numeric>

#include "peripheral/NfcProxy.h"
#include "tests/keyboard/TestPeer.h"
#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;
using Bytes = std::vector<std::uint8_t>;

namespace {

constexpr std::size_t kPayload = 60;

// The pages that carry a frame, as the recorder writes them.
std::vector<std::string> PagesOf(const Bytes& frame, std::size_t count) {
    std::vector<std::string> pages;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t size = std::min(kPayload, frame.size() - i * kPayload);
        Bytes page(64);
        page[0] = 5;
        page[1] = static_cast<std::uint8_t>(count);
        page[2] = static_cast<std::uint8_t>(i + 1);
        page[3] = static_cast<std::uint8_t>(size + 4);
        std::copy_n(&frame[i * kPayload], size, &page[4]);
        std::string text = "W";
        for (const std::uint8_t byte : page) {
            constexpr char kDigits[] = "0123456789abcdef";
            text += {' ', kDigits[byte / 16], kDigits[byte % 16]};
        }
        pages.push_back(text);
    }
    return pages;
}

// Both keyboards connected, and a device that keeps what it gets in place of the Bluetooth one.
std::shared_ptr<TestPeer> StartBoth(Desk& desk) {
    desk.Start();
    EXPECT_TRUE(desk.manager->BtDisconnect(simulator::kDefaultBleAddress));
    const auto peer = TestPeer::Make();
    EXPECT_TRUE(desk.manager->BtConnect(3));
    AnnounceStop(desk.log);
    return peer;
}

TEST(Frame, ImagesOverBothKeyboards) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kHid, PcRoute::kBle});
    const auto peer = StartBoth(desk);
    BusRecorder bus;
    const auto proxy = NfcProxy::Detached();
    Bytes image(1000);
    std::iota(image.begin(), image.end(), std::uint8_t{1});
    for (const auto& [length, pages] :
         {std::pair{0, 1U}, {58, 1U}, {59, 2U}, {255, 5U}, {888, 15U}, {889, 0U}, {-1, 0U}}) {
        SCOPED_TRACE(length);
        desk.log.Clear();
        peer->written.clear();
        EXPECT_EQ(proxy->NfcHidWrite(image.data(), length), pages != 0);
        EXPECT_EQ(proxy->BtWrite(image.data(), length), pages != 0);
        Bytes frame = {0x2E, 0x00};
        frame.insert(frame.end(), image.begin(), image.begin() + std::max(length, 0));
        EXPECT_EQ(bus.Take(hosted::CurrentThread()), PagesOf(frame, pages));
        if (pages == 0) {
            EXPECT_TRUE(desk.log.Lines().empty() && peer->written.empty()) << "without a word";
            continue;
        }
        EXPECT_EQ(peer->written, std::vector<Bytes>{frame}) << "one write, whatever its length";
        EXPECT_EQ(peer->ends, (std::vector<std::string>{"0000FE40-CC7A-482A-984A-7F2ED5B3E512",
                                                        "0000FE41-CC7A-482A-984A-7F2ED5B3E512"}));
        EXPECT_TRUE(
            HasInOrder(desk.log, {"NfcHidWrite totalLength = " + std::to_string(frame.size()) +
                                      ", num of page = " + std::to_string(pages) + " ",
                                  "NfcHidWrite success!", "[NFC] BtWrite success!"}));
    }
    desk.log.Clear();
    EXPECT_FALSE(proxy->NfcHidWrite(nullptr, 5) || proxy->BtWrite(nullptr, 5));
    EXPECT_FALSE(proxy->HidWrite(0, image.data(), 5, 1) || proxy->HidWrite(1, nullptr, 5, 1));
    EXPECT_FALSE(proxy->HidWrite(1, image.data(), 0, 1) || proxy->HidWrite(1, image.data(), 61, 1));
    EXPECT_TRUE(bus.Take(hosted::CurrentThread()).empty() && desk.log.Lines().empty());
    EXPECT_TRUE(desk.manager->BtDisconnect(3));
    LinkDockService::SetPeer(nullptr);
}

TEST(Frame, NumberRequestsByPcType) {
    for (const std::uint8_t pcType : {std::uint8_t{2}, std::uint8_t{5}, std::uint8_t{8}}) {
        ForEachSeed(1, [pcType] {
            Desk desk({PcRoute::kHid, PcRoute::kBle}, "fm11nt081", pcType);
            const auto peer = StartBoth(desk);
            BusRecorder bus;
            desk.log.Announce("NFC ReadRandNumber fail,");  // the test's device never answers
            std::uint8_t number[32];
            EXPECT_EQ(desk.manager->ReadRandNum(number), 0);
            EXPECT_EQ(number[31], 0x11) << "from the HID keyboard";
            const std::uint8_t low = pcType == 2 ? 0x49 : 0x7A;
            const Bytes request = {0x2E, 0x01, low, 0x00};
            EXPECT_EQ(peer->written, std::vector<Bytes>{request});
            EXPECT_EQ(bus.Take(hosted::CurrentThread()), PagesOf(request, 1));
            EXPECT_TRUE(desk.manager->BtDisconnect(3));
        });
    }
}

}  // namespace
