#include "tests/system/soak/Story.h"

#include <random>
#include <sstream>

using simulator::PcRoute;

namespace soak {

namespace {

constexpr unsigned kMostOperations = 40;
constexpr hosted::Micros kMillisecond = hosted::kMillisecond;

class Dice {
  public:
    explicit Dice(std::uint64_t seed) : m_engine(seed) {}
    unsigned Below(std::uint64_t bound) { return static_cast<unsigned>(m_engine() % bound); }
    hosted::Micros Between(hosted::Micros low, hosted::Micros high) {
        return low + Below(static_cast<std::uint64_t>(high - low + 1));
    }

  private:
    std::mt19937_64 m_engine;
};

const struct {
    std::vector<PcRoute> routes;
    const char* chip;
} kPeripherals[] = {{{PcRoute::kI2c}, "fm11nt081"},
                    {{PcRoute::kI2c}, "fm11nt082c"},
                    {{PcRoute::kI2c}, "fanli"},
                    {{PcRoute::kI2c}, "like-fm11n"},
                    {{PcRoute::kI2c}, "like-fanli"},
                    {{PcRoute::kUsb}, "fm11nt081"},
                    {{PcRoute::kHid}, "fm11nt081"},
                    {{PcRoute::kBle}, "fm11nt081"},
                    {{PcRoute::kI2c, PcRoute::kBle}, "fanli"}};

// Each as often as it stands here.
constexpr Act kActs[] = {Act::kWrite, Act::kWrite,   Act::kRenew,      Act::kRenew,
                         Act::kRenew, Act::kRead,    Act::kReadNumber, Act::kUpdate,
                         Act::kStart, Act::kRecover, Act::kRecover,    Act::kDisconnect,
                         Act::kTap,   Act::kTap,     Act::kTap,        Act::kTap,
                         Act::kFault, Act::kFault,   Act::kReplug,     Act::kRestart};
constexpr const char* kNames[] = {"write",  "renew", "read",    "read number",
                                  "update", "start", "recover", "disconnect",
                                  "tap",    "fault", "replug",  "restart"};

std::string DrawPlan(Dice& dice) {
    constexpr const char* kTargets[] = {"read", "write", "control", "interrupt", "any"};
    constexpr const char* kActions[] = {"refuse:1117", "fail:1117", "short:1",
                                        "late:300",    "never",     "gone"};
    const unsigned first = 1 + dice.Below(12);
    return std::string(kTargets[dice.Below(5)]) + "#" + std::to_string(first) + "-" +
           std::to_string(first + dice.Below(4)) + "=" + kActions[dice.Below(6)];
}

// Operations that fall into each other, that follow at once, and that find everybody at rest.
constexpr std::pair<hosted::Micros, hosted::Micros> kGaps[] = {
    {0, 2 * hosted::kSecond},
    {2 * hosted::kSecond, 60 * hosted::kSecond},
    {60 * hosted::kSecond, 300 * hosted::kSecond}};

hosted::Micros DrawGap(Dice& dice) {
    const auto [low, high] = kGaps[dice.Below(std::size(kGaps))];
    return dice.Between(low, high);
}

constexpr std::uint8_t kFirstRoundFill = 0x60;

// Phones one after the other: on their own, or so close that one falls into the watch over another;
// some with a renewal or a read just before they come or while they are there.
std::vector<Operation> DrawRounds(Dice& dice, const Story& story) {
    std::vector<Operation> rounds;
    hosted::Micros at = hosted::kSecond;
    const unsigned phones = 2 + dice.Below(4);
    for (unsigned i = 0; i < phones; ++i) {
        Operation phone;
        phone.act = Act::kTap;
        phone.at = at += dice.Below(2) == 0
                             ? dice.Between(50 * kMillisecond, 700 * kMillisecond)
                             : dice.Between(20 * hosted::kSecond, 40 * hosted::kSecond);
        phone.route = story.routes[dice.Below(story.routes.size())];
        phone.lasting = dice.Between(300 * kMillisecond, 4000 * kMillisecond);
        at += phone.lasting;
        Operation beside;
        beside.act = kActs[dice.Below(std::size(kActs))];
        beside.at = phone.at + dice.Between(-200 * kMillisecond, phone.lasting);
        beside.fill = static_cast<std::uint8_t>(kFirstRoundFill + i);
        if (beside.act == Act::kRenew || beside.act == Act::kRead ||
            beside.act == Act::kReadNumber) {
            rounds.push_back(beside);
        }
        rounds.push_back(phone);
    }
    return rounds;
}

}  // namespace

Story Draw(std::uint64_t seed) {
    Dice dice(seed);
    Story story;
    const auto& [routes, chip] = kPeripherals[dice.Below(std::size(kPeripherals))];
    story.routes = routes;
    story.chip = chip;
    story.hosts = 1 + dice.Below(4);
    story.managers = 1 + dice.Below(2);
    constexpr hosted::Micros kLateness[] = {0, 2 * kMillisecond, 20 * kMillisecond};
    constexpr unsigned kChangePoints[] = {0, 0, 3, 20};
    story.options.seed = seed;
    story.options.maxSteps = 3'000'000;
    // A HID keyboard's answer takes 4 ms and is missed by a reader that is later than that.
    const bool isHid = story.routes[0] == PcRoute::kHid;
    story.options.maxLateness = kLateness[dice.Below(isHid ? 2 : 3)];
    story.options.priorityChangePoints = kChangePoints[dice.Below(4)];
    hosted::Micros at = hosted::kSecond;
    for (unsigned i = 0; i < kMostOperations && (at += DrawGap(dice)) < kHour; ++i) {
        Operation operation;
        operation.act = kActs[dice.Below(std::size(kActs))];
        if (operation.act == Act::kDisconnect && story.routes.back() != PcRoute::kBle) {
            operation.act = Act::kRecover;  // there is nothing to disconnect
        }
        operation.at = at;
        operation.host = dice.Below(story.hosts);
        operation.manager = dice.Below(story.managers);
        operation.fill = static_cast<std::uint8_t>(i + 2);  // told apart on the tag
        operation.lasting = dice.Between(300 * kMillisecond, 4000 * kMillisecond);
        if (operation.act == Act::kFault) {
            operation.plan = DrawPlan(dice);
        }
        operation.route = story.routes[0];
        story.operations.push_back(operation);
    }
    story.rounds = DrawRounds(dice, story);
    story.renewalAfter = dice.Between(50 * kMillisecond, 500 * kMillisecond);
    story.stopAfter = dice.Between(0, 1500 * kMillisecond);
    return story;
}

std::string Describe(const Story& story) {
    constexpr const char* kRoutes[] = {"i2c", "usb", "hid", "ble"};
    std::ostringstream text;
    text << "  desk:";
    for (const PcRoute route : story.routes) {
        text << " " << kRoutes[static_cast<int>(route)];
    }
    text << ", " << story.chip << ", " << story.managers << " manager(s), lateness "
         << story.options.maxLateness << " us, change points " << story.options.priorityChangePoints
         << "\n";
    const auto tell = [&](const Operation& one) {
        text << kNames[static_cast<int>(one.act)] << " " << unsigned{one.fill} << " for "
             << one.lasting << " us " << one.plan << "\n";
    };
    for (const Operation& one : story.operations) {
        text << "  " << one.at << " us: host " << one.host << ", manager " << one.manager << ": ";
        tell(one);
    }
    for (const Operation& one : story.rounds) {
        text << "  then, at " << one.at << " us, " << kRoutes[static_cast<int>(one.route)] << ": ";
        tell(one);
    }
    return text.str();
}

}  // namespace soak
