// Two host threads write to one tag: no image is ever a mixture, and the last number given stays.
#include <gtest/gtest.h>

#include <map>

#include "tagimage/NfcData.h"
#include "tests/manager/ManagerAccess.h"
#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

constexpr std::size_t kImageSize = 143;
constexpr unsigned kOperations = 5;
constexpr std::uint8_t kNumbers = 3;  // few, so that a number is often given again

// Watches the tag between two steps, and who gave the last number.
class Watch {
  public:
    Watch(Desk& desk, PcRoute route) : m_desk(desk), m_route(route) {
        hosted::SetTracer([this](const hosted::TraceEvent& event) { Note(event); });
    }
    ~Watch() { hosted::SetTracer({}); }

    /// The next message or number of this thread; taken over at its first look at the memory.
    void Give(std::uint8_t fill) {
        const hosted::DeviceLock lock;
        m_giving[hosted::CurrentThread()] = fill;
    }

    std::uint8_t last = 0;
    unsigned looks = 0;
    std::string problem;  // of the first image that was wrong

    /// The number on the tag, or what is wrong with the image.
    std::string Judge() {
        const simulator::Bytes bytes = m_route == PcRoute::kHid ? m_desk.pc.keyboard()->Image()
                                       : m_route == PcRoute::kBle
                                           ? m_desk.pc.bluetooth()->Image()
                                           : m_desk.pc.chip()->BackDoor().Memory(16, kImageSize);
        NfcData data;
        if (!data.Init() || !data.Parse(std::string(bytes.begin(), bytes.end()))) {
            return "malformed";
        }
        const std::string made = data.GetUrl() + data.GetMacAddr() + data.GetModel();
        const std::string number = data.GetRandomNumber();
        return made != std::string(60, made[0]) ? "mixed: " + made : number;
    }

  private:
    void Note(const hosted::TraceEvent& event) {
        if (event.kind != hosted::TraceEvent::Kind::kLock) {
            return;
        }
        if (event.text == "g_contentMutex" && problem.empty()) {
            ++looks;
            const std::string found = Judge();
            problem = found == std::string(32, found[0]) ? "" : found;
        }
        const auto giving = m_giving.find(event.thread);
        if (event.text == "g_memoryMutex" && giving != m_giving.end()) {
            last = giving->second;
            m_giving.erase(giving);
        }
    }

    Desk& m_desk;
    PcRoute m_route;
    std::map<hosted::ThreadId, std::uint8_t> m_giving;  // all under hosted::DeviceLock
};

// URL, address and model tell who made the message; the number is its own.
std::shared_ptr<NdefMessage> Message(char maker, std::uint8_t number) {
    auto message = std::make_shared<NdefMessage>();
    const auto byte = static_cast<std::uint8_t>(maker);
    SetNumber(*message, NumberOf(number));
    message->SetUrl(std::string(50, maker));
    message->SetMac({byte, byte, byte, byte, byte, byte});
    message->SetModel({byte, byte, byte, byte});
    message->SetPcType(5);
    return message;
}

struct Writer {
    NfcManager& manager;
    Watch& watch;
    char maker;
};

DWORD WINAPI Write(LPVOID argument) {
    const auto& [manager, watch, maker] = *static_cast<Writer*>(argument);
    for (unsigned i = 0; i < kOperations; ++i) {
        const auto fill = static_cast<std::uint8_t>(1 + hosted::Random() % kNumbers);
        const auto choice = hosted::Random() % 5;
        if (choice < 3) {
            watch.Give(fill);
            EXPECT_EQ(choice < 2 ? Renew(manager, NumberOf(fill))
                                 : manager.WriteMessage(Message(maker, fill)),
                      0);
        } else if (choice == 3) {
            manager.ReadMessage(NfcManagerTestAccess::Message(manager));
        } else {
            EXPECT_TRUE(manager.UpdateNfcData());
        }
    }
    return 0;
}

void TwoWriters(PcRoute route) {
    Desk desk({route}, "fm11nt082c");
    desk.Start();
    desk.log.Announce("spbDriverOps == nullptr");
    desk.log.Announce("ReadMessage ReadNfcContent failed");
    ASSERT_EQ(desk.manager->WriteMessage(Message('m', 1)), 0);
    Watch watch(desk, route);
    Writer writers[] = {{*desk.manager, watch, 'a'}, {*desk.manager, watch, 'b'}};
    for (Writer& writer : writers) {
        CloseHandle(CreateThread(nullptr, 0, Write, &writer, 0, nullptr));
    }
    // What stays: the deferred call thread, and the one that listens to the route.
    EXPECT_TRUE(hosted::WaitFor([] { return hosted::Live().threads <= 2; }, 600 * hosted::kSecond,
                                "the writers"));
    EXPECT_EQ(watch.problem, "");
    EXPECT_GT(watch.looks, 2U);
    const std::string number(32, static_cast<char>(watch.last == 0 ? 1 : watch.last));
    EXPECT_EQ(watch.Judge(), number);
    std::uint8_t kept[32];
    NfcManagerTestAccess::Message(*desk.manager)->GetRandomNumber(kept);
    EXPECT_EQ(kept[0], number[0]);
    AnnounceStop(desk.log);
}

TEST(Writers, NeverMixImagesOnTheChip) {
    ForEachSeed(200, [] { TwoWriters(PcRoute::kI2c); });
}

TEST(Writers, NeverMixImagesOnTheHidKeyboard) {
    ForEachSeed(200, [] { TwoWriters(PcRoute::kHid); });
}

TEST(Writers, NeverMixImagesOnTheBluetoothKeyboard) {
    ForEachSeed(200, [] { TwoWriters(PcRoute::kBle); });
}

}  // namespace
