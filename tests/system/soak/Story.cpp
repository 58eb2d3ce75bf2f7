// Draws stories.
#include "tests/system/soak/Story.h"

#include <algorithm>
#include <iterator>
#include <random>

#include "lab/Hex.h"

namespace soak {

namespace {

constexpr unsigned kMostOperations = 40;
constexpr unsigned kHourMs = 3'600'000;
constexpr char kFaultTime[] = "wait 20000";    // how long a plan is in force
constexpr char kRenewalTime[] = "wait 60000";  // until a renewal has surely ended
constexpr char kRefused[] = "fault unsubscribe#1, disconnect#1";
constexpr std::size_t kUrlSize = 50;  // that the number's register is made for

using Words = std::vector<std::string>;

class Dice {
  public:
    explicit Dice(std::uint64_t seed) : m_engine(seed) {}
    unsigned Below(std::uint64_t bound) { return static_cast<unsigned>(m_engine() % bound); }
    unsigned Between(unsigned low, unsigned high) { return low + Below(high - low + 1); }
    const std::string& OneOf(const Words& words) { return words[Below(words.size())]; }

  private:
    std::mt19937_64 m_engine;
};

std::string Times(std::size_t count, char byte) {
    return std::string(count, byte);
}

std::string Number(char byte) {
    return lab::ToHex(Times(32, byte));
}

std::string Content(char byte) {
    return " url=" + Times(kUrlSize, static_cast<char>('a' + byte % 26)) +
           " number=" + Number(byte);
}

std::string LastWrite(char number) {
    return "write url=" + Times(kUrlSize, kLastLetter) + " number=" + Number(number) +
           " mac=" + lab::ToHex(Times(6, kLastLetter)) +
           " model=" + lab::ToHex(Times(4, kLastLetter));
}

const struct {
    const char* routes;
    const char* chip;
} kPeripherals[] = {{"i2c", "fm11nt081"},  {"i2c", "fm11nt082c"}, {"i2c", "fanli"},
                    {"i2c", "like-fm11n"}, {"i2c", "like-fanli"}, {"usb", "fm11nt081"},
                    {"hid", ""},           {"ble", ""},           {"i2c,ble", "fanli"}};

// Each as often as it is listed.
const Words kActs{"write",  "write",   "renew", "renew",   "renew",   "read-message",
                  "update", "number",  "open",  "recover", "recover", "disconnect",
                  "tap",    "tap",     "tap",   "tap",     "fault",   "fault",
                  "replug", "restart", "meet",  "meet"};

// What one thread does in a row, so that the last content taken over is known at each step.
const Words kSequence{"renew",         "renew",         "renew",        "write",
                      "update-number", "update-number", "read-message", "read-own",
                      "update",        "restart",       "overtaken"};

std::string DrawPlan(Dice& dice, bool ofClient) {
    if (ofClient) {
        const Words calls{"connect", "disconnect", "subscribe", "unsubscribe", "write"};
        return dice.OneOf(calls) + "#" + std::to_string(1 + dice.Below(3));
    }
    const unsigned first = 1 + dice.Below(12);
    const std::string kind = dice.OneOf({"read", "write", "control", "interrupt", "any"});
    return kind + "#" + std::to_string(first) + "-" + std::to_string(first + dice.Below(4)) + "=" +
           dice.OneOf({"refuse:1117", "fail:1117", "short:1", "late:300", "never", "gone"});
}

// The lines of one act, each by the same host.
Words LinesOf(Dice& dice, const Story& story, const std::string& act, const std::string& manager,
              char byte) {
    if (act == "write" || act == "restart") {
        return {manager + act + Content(byte)};
    }
    if (act == "renew") {
        return {manager + "renew " + Number(byte)};
    }
    if (act == "update-number") {
        return {manager + "update number=" + Number(byte)};
    }
    if (act == "overtaken") {
        // The number that is still on its way to the tag is the older one, also for the reading.
        return {"renew " + Number(static_cast<char>(byte + kMostOperations)),
                "update number=" + Number(byte), "read-message own", "update", kRenewalTime};
    }
    if (act == "number" || act == "read-own") {
        return {manager + (act == "number" ? "read-number" : "read-message own")};
    }
    if (act == "recover") {
        return {manager + "open", manager + "write" + Content(byte)};
    }
    if (act == "tap" || act == "meet") {
        const std::string stay = std::to_string(dice.Between(300, 4000));
        if (act == "tap") {
            return {"in 0 tap " + stay};
        }
        return {"in " + std::to_string(dice.Below(40)) + " tap " + stay,
                dice.OneOf({manager + "renew " + Number(byte), manager + "write" + Content(byte),
                            manager + "read-number"})};
    }
    if (act == "fault") {
        const bool ofClient = story.Has("ble") && (story.routes.size() == 1 || dice.Below(2) == 0);
        const std::string plan = DrawPlan(dice, ofClient);
        Words lines{"fault " + plan, kFaultTime, "fault none"};
        if (plan.find("never") != std::string::npos) {
            // Only the device's end ends what it has swallowed.
            lines.insert(lines.end(), {"unplug", "plug"});
        }
        return lines;
    }
    if (act == "replug") {
        return {"unplug", "wait " + std::to_string(dice.Between(300, 4000)), "plug"};
    }
    return {manager + act};
}

void DrawHour(Dice& dice, Story& story, bool isSequence) {
    // Operations that fall into each other, that follow at once, and that find everybody at rest.
    const std::pair<unsigned, unsigned> gaps[] = {{0, 2000}, {2000, 60'000}, {60'000, 300'000}};
    const bool isFanli = story.chip == "fanli" || story.chip == "like-fanli";
    unsigned at = 1000;
    for (unsigned i = 0; i < kMostOperations; ++i) {
        const auto [low, high] = gaps[dice.Below(std::size(gaps))];
        at += !isSequence          ? dice.Between(low, high)
              : dice.Below(8) == 0 ? 65'000
                                   : dice.Between(0, 300);
        if (at >= kHourMs) {
            break;
        }
        std::string act = dice.OneOf(isSequence ? kSequence : kActs);
        if (act == "disconnect" && !story.Has("ble")) {
            act = "recover";
        }
        // Detection disturbed by a fault takes a Fanli chip for another kind, whose driver leaves
        // the status unread, which then interrupts without end. The fault sweep covers it. One host
        // does one after the other.
        const bool inTurn =
            isFanli && (act == "open" || act == "recover" || act == "restart" || act == "fault");
        const std::string host =
            "host " + std::to_string(inTurn ? 1 : 1 + dice.Below(story.hosts)) + " ";
        const unsigned number = 1 + dice.Below(story.managers);
        const std::string manager = number == 1 ? "" : "manager 2 ";
        std::string entry;
        for (const std::string& line :
             LinesOf(dice, story, act, manager, static_cast<char>(i + 3))) {
            entry += (entry.empty() ? "at " + std::to_string(at) + " " : "\n") + host + line;
        }
        story.sections[kHour].push_back(entry);
    }
}

// Phones one after the other: on their own, or so close that one falls into the watch over another;
// some with a renewal or a read just before they come or while they are there.
Words DrawRounds(Dice& dice, const Story& story) {
    std::vector<std::pair<unsigned, std::string>> lines;
    unsigned at = kHourMs + 600'000;
    const unsigned phones = 2 + dice.Below(4);
    for (unsigned i = 0; i < phones; ++i) {
        at += dice.Below(2) == 0 ? dice.Between(50, 700) : dice.Between(20'000, 40'000);
        const unsigned stay = dice.Between(300, 4000);
        lines.emplace_back(at, "in 0 tap " + std::to_string(stay) + " " + dice.OneOf(story.routes));
        const std::string beside = dice.OneOf(kActs);
        if (beside == "renew" || beside == "read-message" || beside == "number") {
            lines.emplace_back(at + dice.Below(200 + stay) - 200,
                               "host 1 " + LinesOf(dice, story, beside, "",
                                                   static_cast<char>(kFirstGiven + i))[0]);
        }
        at += stay;
    }
    std::sort(lines.begin(), lines.end());
    Words entries;
    for (const auto& [time, text] : lines) {
        entries.push_back("at " + std::to_string(time) + " " + text);
    }
    return entries;
}

Words DrawListener(Dice& dice, Story& story) {
    const bool reads = dice.Below(2) == 0;
    story.missesReports = reads && (story.Has("hid") || story.Has("ble"));
    return {"listener on pause=" + dice.OneOf({"0", "50", "400"}) + (reads ? " reads" : "") +
            (dice.Below(2) == 0 ? " renews" : "")};
}

}  // namespace

Story Draw(std::uint64_t seed) {
    Dice dice(seed);
    Story story;
    const auto& [routes, chip] = kPeripherals[dice.Below(std::size(kPeripherals))];
    for (const std::string route : {"i2c", "usb", "hid", "ble"}) {
        if (std::string(routes).find(route) != std::string::npos) {
            story.routes.push_back(route);
        }
    }
    story.chip = chip;
    const bool isSequence = dice.Below(4) == 0;
    story.hosts = isSequence ? 1 : 1 + dice.Below(4);
    story.managers = isSequence ? 1 : 1 + dice.Below(2);
    auto& [begin, hour, hourEnd, settle, rounds, roundsEnd, held, last, stop] = story.sections;

    // A HID keyboard's answer takes 4 ms and is missed by a reader that is later than that.
    const std::string late =
        story.Has("hid") ? dice.OneOf({"0", "2"}) : dice.OneOf({"0", "2", "20"});
    begin = {"pc route=" + std::string(routes) + (story.chip.empty() ? "" : " chip=" + story.chip) +
             " late=" + late + " changes=" + dice.OneOf({"0", "0", "3", "20"})};
    const bool isStuck = story.IsWired() && story.chip.rfind("fm11n", 0) == 0 && dice.Below(3) == 0;
    if (isStuck) {
        begin.push_back("chip-bits 038C 10 10");  // a mode byte other than 6
    }
    const bool hasHabits = story.Has("ble") && dice.Below(2) == 0;
    const bool isRefused = hasHabits && dice.Below(2) == 0;
    if (hasHabits) {
        begin.push_back("ble-client inside-subscribe=" + dice.OneOf({"0", "30"}) +
                        " inside-write=" + dice.OneOf({"0", "30"}) +
                        " threads=" + dice.OneOf({"1", "2"}) + (isRefused ? " after-refusal" : ""));
    }
    begin.push_back("restart" + Content(1));
    if (story.managers > 1) {
        begin.push_back("manager 2 start" + Content(2));
    }
    if (hasHabits || dice.Below(3) == 0) {
        const Words listener = DrawListener(dice, story);
        begin.insert(begin.end(), listener.begin(), listener.end());
    }
    DrawHour(dice, story, isSequence);
    hourEnd = {"join", "at " + std::to_string(kHourMs), kRenewalTime};
    settle = {"listener on",
              "open",
              "host 1 " + LastWrite('\xE0'),
              "wait " + std::to_string(isStuck ? dice.Between(0, 300) : dice.Between(50, 500)),
              "renew " + Number(kFirstSettled),
              "join",
              kRenewalTime};
    if (isRefused) {
        settle[1] = std::string(kRefused) + "\nopen\nfault none";
    }
    if (dice.Below(3) == 0) {
        settle.push_back("listener on pause=50" + dice.OneOf({"", " renews"}));
    }
    rounds = DrawRounds(dice, story);
    roundsEnd = {"join", kRenewalTime};
    held = {"listener on", "in 0 tap 12000", "wait " + std::to_string(dice.Between(300, 3000)),
            dice.OneOf({"write", "manager 4 create", "renew " + Number(kFirstGiven)}),
            kRenewalTime};
    last = {"renew " + Number(kLastNumber), kRenewalTime, "in 0 tap 250", "wait 24000"};
    const unsigned stopAfter = dice.Below(1501);
    stop = {"in 0 tap " + std::to_string(1000 + stopAfter)};
    if (stopAfter % 2 == 0) {
        // Opens another visit after the one that it falls into: each is to be closed.
        stop.insert(stop.end(), {"wait 500", LastWrite(kLastNumber)});
    }
    stop.push_back("wait " + std::to_string(stopAfter));
    if (isRefused) {
        stop.insert(stop.end(), {kRefused, "disconnect", "fault none", "in 0 tap 500 ble"});
    } else {
        stop.emplace_back("on ble disconnect");
    }
    stop.emplace_back("stop");
    if (story.managers > 1) {
        stop.emplace_back("manager 2 stop");
    }
    if (held[3] == "manager 4 create") {
        stop.emplace_back("manager 4 stop");
    }
    stop.emplace_back(kRenewalTime);
    return story;
}

bool Story::Has(const std::string& route) const {
    return std::find(routes.begin(), routes.end(), route) != routes.end();
}

std::string Story::Text() const {
    std::string text;
    for (const Words& section : sections) {
        for (const std::string& entry : section) {
            text += entry + "\n";
        }
    }
    return text;
}

Section Story::SectionOf(std::size_t line) const {
    int section = 0;
    for (std::size_t end = 0; section < kSections; ++section) {
        for (const std::string& entry : sections[static_cast<std::size_t>(section)]) {
            end += 1 + static_cast<std::size_t>(std::count(entry.begin(), entry.end(), '\n'));
        }
        if (line <= end) {
            break;
        }
    }
    return static_cast<Section>(section);
}

}  // namespace soak
