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

bool Uniform(const std::string& bytes) {
    return bytes.find_first_not_of(bytes.front()) == std::string::npos;
}

// Watches the tag between two steps, and who gave the last number.
class Watch {
  public:
    explicit Watch(Desk& desk, PcRoute route) : m_desk(desk), m_route(route) {
        hosted::SetTracer([this](const hosted::TraceEvent& event) { Note(event); });
    }
    ~Watch() { hosted::SetTracer({}); }

    /// The next message or number of this thread; taken over at its first look at the memory.
    void Give(std::uint8_t fill) {
        const hosted::DeviceLock lock;
        m_giving[hosted::CurrentThread()] = fill;
    }

    std::string Image() {
        simulator::Bytes bytes;
        if (m_route == PcRoute::kHid) {
            bytes = m_desk.pc.keyboard()->Image();
        } else if (m_route == PcRoute::kBle) {
            bytes = m_desk.pc.bluetooth()->Image();
        } else {
            bytes = m_desk.pc.chip()->BackDoor().Memory(16, kImageSize);
        }
        return {bytes.begin(), bytes.end()};
    }

    std::uint8_t last() const { return m_last; }
    const std::string& problem() const { return m_problem; }
    unsigned looks() const { return m_looks; }

    /// What is wrong with the image, or nothing.
    std::string Judge() {
        NfcData data;
        if (!data.Init() || !data.Parse(Image())) {
            return "malformed";
        }
        const std::string url = data.GetUrl();
        const bool whole = Uniform(url) && Uniform(data.GetMacAddr()) && Uniform(data.GetModel()) &&
                           Uniform(data.GetRandomNumber()) && url[0] == data.GetMacAddr()[0] &&
                           url[0] == data.GetModel()[0];
        return whole ? "" : "mixed: " + url + " with " + data.GetMacAddr() + data.GetModel();
    }

  private:
    void Note(const hosted::TraceEvent& event) {
        if (event.kind != hosted::TraceEvent::Kind::kLock) {
            return;
        }
        if (event.text == "g_contentMutex" && m_problem.empty()) {
            ++m_looks;
            m_problem = Judge();
        }
        const auto giving = m_giving.find(event.thread);
        if (event.text == "g_memoryMutex" && giving != m_giving.end()) {
            m_last = giving->second;
            m_giving.erase(giving);
        }
    }

    Desk& m_desk;
    PcRoute m_route;
    std::map<hosted::ThreadId, std::uint8_t> m_giving;  // all under hosted::DeviceLock
    std::uint8_t m_last = 0;
    std::string m_problem;
    unsigned m_looks = 0;
};

// URL, address and model tell who made the message; the number is its own.
std::shared_ptr<NdefMessage> Message(char maker, std::uint8_t number) {
    auto message = std::make_shared<NdefMessage>();
    std::uint8_t bytes[32];
    std::fill(std::begin(bytes), std::end(bytes), number);
    message->SetRandomNumber(bytes);
    std::fill(std::begin(bytes), std::end(bytes), static_cast<std::uint8_t>(maker));
    message->SetUrl(std::string(50, maker));
    message->SetMac(reinterpret_cast<const std::uint8_t(&)[6]>(bytes));
    message->SetModel(reinterpret_cast<const std::uint8_t(&)[4]>(bytes));
    message->SetPcType(5);
    return message;
}

struct Writer {
    NfcManager* manager;
    Watch* watch;
    char maker;
};

DWORD WINAPI Write(LPVOID argument) {
    const Writer& writer = *static_cast<Writer*>(argument);
    for (unsigned i = 0; i < kOperations; ++i) {
        const auto fill = static_cast<std::uint8_t>(1 + hosted::Random() % kNumbers);
        switch (hosted::Random() % 5) {
            case 0:
            case 1: {
                std::uint8_t number[32];
                std::fill(std::begin(number), std::end(number), fill);
                writer.watch->Give(fill);
                EXPECT_EQ(writer.manager->WriteRandNum(number), 0);
                break;
            }
            case 2:
                writer.watch->Give(fill);
                EXPECT_EQ(writer.manager->WriteMessage(Message(writer.maker, fill)), 0);
                break;
            case 3:
                writer.manager->ReadMessage(std::make_shared<NdefMessage>());
                break;
            default:
                EXPECT_TRUE(writer.manager->UpdateNfcData());
                break;
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
    Writer writers[] = {{desk.manager.get(), &watch, 'a'}, {desk.manager.get(), &watch, 'b'}};
    for (Writer& writer : writers) {
        CloseHandle(CreateThread(nullptr, 0, Write, &writer, 0, nullptr));
    }
    // What stays: the deferred call thread, and the one that listens to the route.
    EXPECT_TRUE(Desk::WaitForThreads(2, 600 * hosted::kSecond));
    EXPECT_EQ(watch.problem(), "");
    EXPECT_GT(watch.looks(), 2U);
    EXPECT_EQ(watch.Judge(), "");
    if (watch.last() != 0) {
        NfcData data;
        ASSERT_TRUE(data.Init() && data.Parse(watch.Image()));
        EXPECT_EQ(data.GetRandomNumber(), std::string(32, static_cast<char>(watch.last())));
        std::uint8_t kept[32];
        NfcManagerTestAccess::Message(*desk.manager)->GetRandomNumber(kept);
        EXPECT_EQ(kept[0], watch.last());
    }
    AnnounceStop(desk.log);
    desk.manager.reset();
    Desk::WaitForThreads(1);
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
