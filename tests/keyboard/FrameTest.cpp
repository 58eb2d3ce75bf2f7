// The frames to the keyboards, byte for byte.
#include <gtest/gtest.h>

#include "peripheral/NfcProxy.h"
#include "tests/keyboard/TestPeer.h"
#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;
using Bytes = std::vector<std::uint8_t>;

namespace {

// Keeps what is written to the HID keyboard.
class Pages {
  public:
    Pages() {
        hosted::SetTracer([this](const hosted::TraceEvent& event) {
            if (event.kind == hosted::TraceEvent::Kind::kStart &&
                event.request->kind() == hosted::Request::Kind::kWrite) {
                m_pages.push_back(event.request->data());
            }
        });
    }
    ~Pages() { hosted::SetTracer({}); }
    std::vector<Bytes> Take() { return std::move(m_pages); }

  private:
    std::vector<Bytes> m_pages;
};

Bytes Image(std::size_t length) {
    Bytes image(length);
    for (std::size_t i = 0; i < length; ++i) {
        image[i] = static_cast<std::uint8_t>(i % 251 + 1);
    }
    return image;
}

Bytes Frame(const Bytes& image) {
    Bytes frame = {0x2E, 0x00};
    frame.insert(frame.end(), image.begin(), image.end());
    return frame;
}

struct Case {
    std::int32_t length;
    bool sent;
    Bytes lengthBytes;
};

TEST(Frame, ImagesOverBothKeyboards) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kHid, PcRoute::kBle});
    desk.Start();
    ASSERT_TRUE(desk.manager->BtDisconnect(simulator::kDefaultBleAddress));
    const auto peer = TestPeer::Make();
    ASSERT_TRUE(desk.manager->BtConnect(3));
    Bytes fifteen(14, 64);
    fifteen.push_back(54);
    const Case cases[] = {{0, true, {6}},       {58, true, {64}},
                          {59, true, {64, 5}},  {255, true, {64, 64, 64, 64, 21}},
                          {888, true, fifteen}, {889, false, {}},
                          {-1, false, {}}};
    Pages pages;
    const auto proxy = NfcProxy::Detached();
    for (const Case& one : cases) {
        SCOPED_TRACE(one.length);
        desk.log.Clear();
        const Bytes image = Image(one.length < 0 ? 1 : static_cast<std::size_t>(one.length));
        const std::uint8_t nothing = 0;
        const std::uint8_t* const data = image.empty() ? &nothing : image.data();
        peer->written.clear();
        EXPECT_EQ(proxy->NfcHidWrite(data, one.length), one.sent);
        EXPECT_EQ(proxy->BtWrite(data, one.length), one.sent);
        const std::vector<Bytes> sent = pages.Take();
        ASSERT_EQ(sent.size(), one.lengthBytes.size());
        if (!one.sent) {
            EXPECT_TRUE(desk.log.Lines().empty()) << "refused without a word";
            EXPECT_TRUE(peer->written.empty());
            continue;
        }
        const Bytes frame = Frame(image);
        Bytes carried;
        for (std::size_t i = 0; i < sent.size(); ++i) {
            ASSERT_EQ(sent[i].size(), 64U);
            const std::uint8_t length = one.lengthBytes[i];
            EXPECT_EQ(Bytes(sent[i].begin(), sent[i].begin() + 4),
                      (Bytes{5, static_cast<std::uint8_t>(sent.size()),
                             static_cast<std::uint8_t>(i + 1), length}));
            carried.insert(carried.end(), sent[i].begin() + 4, sent[i].begin() + length);
            EXPECT_EQ(Bytes(sent[i].begin() + length, sent[i].end()), Bytes(64U - length));
        }
        EXPECT_EQ(carried, frame);
        EXPECT_EQ(peer->written, std::vector<Bytes>{frame}) << "one write, whatever its length";
        EXPECT_EQ(peer->ends, (std::vector<std::string>{"0000FE40-CC7A-482A-984A-7F2ED5B3E512",
                                                        "0000FE41-CC7A-482A-984A-7F2ED5B3E512"}));
        EXPECT_TRUE(desk.log.Has("NfcHidWrite totalLength = " + std::to_string(frame.size()) +
                                 ", num of page = " + std::to_string(sent.size()) + " "));
        EXPECT_TRUE(HasInOrder(desk.log, {"NfcHidWrite success!", "[NFC] BtWrite success!"}));
    }
    desk.log.Clear();
    EXPECT_FALSE(proxy->NfcHidWrite(nullptr, 5));
    EXPECT_FALSE(proxy->BtWrite(nullptr, 5));
    const Bytes page = Image(61);
    EXPECT_FALSE(proxy->HidWrite(0, page.data(), 5, 1));
    EXPECT_FALSE(proxy->HidWrite(1, nullptr, 5, 1));
    EXPECT_FALSE(proxy->HidWrite(1, page.data(), 0, 1));
    EXPECT_FALSE(proxy->HidWrite(1, page.data(), 61, 1));
    EXPECT_TRUE(pages.Take().empty());
    EXPECT_TRUE(desk.log.Lines().empty());
    EXPECT_TRUE(desk.manager->BtDisconnect(3));
    AnnounceStop(desk.log);
    LinkDockService::SetPeer(nullptr);
}

TEST(Frame, NumberRequestsByPcType) {
    struct Request {
        std::uint8_t pcType;
        std::uint8_t low;
    };
    for (const Request& one : {Request{2, 0x49}, Request{5, 0x7A}, Request{8, 0x7A}}) {
        ForEachSeed(1, [&one] {
            Desk desk({PcRoute::kHid, PcRoute::kBle}, "fm11nt081", one.pcType);
            desk.Start();
            ASSERT_TRUE(desk.manager->BtDisconnect(simulator::kDefaultBleAddress));
            const auto peer = TestPeer::Make();
            ASSERT_TRUE(desk.manager->BtConnect(3));
            Pages pages;
            desk.log.Announce("NFC ReadRandNumber fail,");  // the test's device never answers
            std::uint8_t number[32];
            EXPECT_EQ(desk.manager->ReadRandNum(number), 0);
            EXPECT_EQ(number[31], 0x11) << "from the HID keyboard";
            const Bytes request = {0x2E, 0x01, one.low, 0x00};
            EXPECT_EQ(peer->written, std::vector<Bytes>{request});
            Bytes page = {5, 1, 1, 8};
            page.insert(page.end(), request.begin(), request.end());
            page.resize(64);
            EXPECT_EQ(pages.Take(), std::vector<Bytes>{page});
            EXPECT_TRUE(desk.manager->BtDisconnect(3));
            AnnounceStop(desk.log);
        });
    }
}

}  // namespace
