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

// The 32 bytes of the number on the tag, or what is wrong with the image. All other fields of an
// image are made of one byte, by which its writer is known.
std::string Judge(Desk& desk) {
    NfcData data;
    if (!data.Init() || !data.Parse(desk.ImageOnChip(kImageSize))) {
        return "malformed";
    }
    const std::string made = data.GetUrl() + data.GetMacAddr() + data.GetModel();
    return made != std::string(60, made[0]) ? "mixed: " + made : data.GetRandomNumber();
}

// Checks the image whenever no step on the tag is under way, and knows the number given last. All
// under hosted::DeviceLock.
struct Watch {
    explicit Watch(Desk& desk) {
        hosted::SetTracer([this, &desk](const hosted::TraceEvent& event) {
            if (event.kind != hosted::TraceEvent::Kind::kLock) {
                return;
            }
            if (event.text == "g_contentMutex" && problem.empty()) {
                ++looks;
                const std::string found = Judge(desk);
                problem = found == std::string(32, found[0]) ? "" : found;
            }
            if (event.text == "g_memoryMutex" && giving.count(event.thread) != 0) {
                last = giving.at(event.thread);
                giving.erase(event.thread);
            }
        });
    }
    ~Watch() { hosted::SetTracer({}); }

    // The next number of a thread. It counts as given when the thread first locks the memory.
    std::map<hosted::ThreadId, std::uint8_t> giving;
    std::uint8_t last = 1;
    unsigned looks = 0;
    std::string problem;  // with the first image that was wrong
};

void WriteOften(Desk& desk, Watch& watch, std::uint8_t maker) {
    NfcManager& manager = *desk.manager;
    for (unsigned i = 0; i < kOperations; ++i) {
        const auto number = static_cast<std::uint8_t>(1 + hosted::Random() % kNumbers);
        const auto choice = hosted::Random() % 5;
        if (choice < 3) {
            {
                const hosted::DeviceLock lock;
                watch.giving[hosted::CurrentThread()] = number;
            }
            EXPECT_EQ(choice < 2 ? Renew(manager, NumberOf(number))
                                 : manager.WriteMessage(desk.NewMessage(number, maker)),
                      0);
        } else if (choice == 3) {
            manager.ReadMessage(NfcManagerTestAccess::Message(manager));
        } else {
            EXPECT_TRUE(manager.UpdateNfcData());
        }
    }
}

TEST(Writers, NeverMixImagesOnAnyRoute) {
    for (const PcRoute route : {PcRoute::kI2c, PcRoute::kHid, PcRoute::kBle}) {
        SCOPED_TRACE(static_cast<int>(route));
        ForEachSeed(200, [route] {
            Desk desk({route}, "fm11nt082c");
            desk.Start(1);
            desk.log.Announce("spbDriverOps == nullptr");
            desk.log.Announce("ReadMessage ReadNfcContent failed");
            Watch watch(desk);
            for (const std::uint8_t maker : {std::uint8_t{0xAA}, std::uint8_t{0xBB}}) {
                OnThread([&desk, &watch, maker] { WriteOften(desk, watch, maker); });
            }
            // What stays: the deferred call thread, and the one that listens to the route.
            EXPECT_TRUE(Desk::WaitForThreads(2, 600 * hosted::kSecond));
            EXPECT_EQ(watch.problem, "");
            EXPECT_GT(watch.looks, 2U);
            EXPECT_EQ(Judge(desk), std::string(32, static_cast<char>(watch.last)));
            std::uint8_t kept[32];
            NfcManagerTestAccess::Message(*desk.manager)->GetRandomNumber(kept);
            EXPECT_EQ(kept[0], watch.last);
        });
    }
}

}  // namespace
