// Draws stories.
#include "tests/system/soak/RandomScript.h"

#include <algorithm>
#include <iterator>
#include <random>

#include "lab/Hex.h"
#include "lab/Words.h"
#include "simulator/PcKinds.h"

namespace soak {

namespace {

using Words = std::vector<std::string>;

constexpr unsigned kMostOperations = 40;
constexpr char kFirstRoundsNumber = '\x60';
constexpr char kFirstSettled = '\xE1';  // the byte of the number given during the last write
constexpr char kLastNumber = '\xE2';
constexpr char kLastLetter = 'z';     // of the last write's URL, address and model
constexpr std::size_t kUrlSize = 50;  // that the number's register is made for

const struct {
    Words routes;
    const char* chip;
} kPeripherals[] = {{{"i2c"}, "fm11nt081"},
                    {{"i2c"}, "fm11nt082c"},
                    {{"i2c"}, "fanli"},
                    {{"i2c"}, "like-fm11n"},
                    {{"i2c"}, "like-fanli"},
                    {{"usb"}, "fm11nt081"},
                    {{"hid"}, ""},
                    {{"ble"}, ""},
                    {{"i2c", "ble"}, "fanli"},
                    {{"ble", "i2c"}, "fm11nt081"},
                    {{"usb", "ble"}, "fm11nt082c"},
                    {{"hid", "ble"}, ""}};

// What a host does, and how often it is drawn: by one of several hosts, by a single thread so that
// the last content taken over is known at each step, and beside a phone of the rounds. %m is a
// manager, %c a content, %n a number, %o an older one, %p a fault plan, %s and %w are times, %r and
// %f the time for a rest and of a fault.
struct Act {
    unsigned inHour;
    unsigned inSequence;
    unsigned besidePhone;
    const char* lines;
};
constexpr Act kActs[] = {
    {2, 1, 0, "%mwrite %c"},
    {3, 3, 3, "%mrenew %n"},
    {1, 1, 1, "%mread-message"},
    {1, 0, 1, "%mread-number"},
    {1, 1, 0, "%mupdate"},
    {1, 1, 0, "%mrestart %c"},
    {1, 0, 0, "%mopen"},
    {2, 0, 0, "%mopen\n%mwrite %c"},
    {1, 0, 0, "on ble %mdisconnect"},
    {1, 0, 0, "on ble %mconnect"},
    {4, 0, 0, "in 0 tap %s"},
    {1, 0, 0, "in %w tap %s\n%mrenew %n"},
    {1, 0, 0, "in %w tap %s\n%mwrite %c"},
    {1, 0, 0, "unplug\nwait %s\nplug"},
    {2, 0, 0, "fault %p\nwait %f\nfault none"},
    // Only the device's end ends what it has swallowed.
    {1, 0, 0, "on i2c,usb,hid fault any#9=never\nwait %f\nfault none\nunplug\nplug"},
    {0, 2, 0, "%mupdate number=%n"},
    {0, 1, 0, "%mread-message own"},
    // The number that is still on its way to the tag is the older one, also for the reading.
    {0, 1, 0, "%mrenew %o\n%mupdate number=%n\n%mread-message own\n%mupdate\nwait %r"},
    {0, 0, 8, ""},
};

std::string Number(char byte) {
    return lab::ToHex(std::string(32, byte));
}

std::string Content(char letter, char number) {
    return "url=" + std::string(kUrlSize, letter) + " number=" + Number(number);
}

std::string When(bool holds, const std::string& lines) {
    return holds ? lines : "";
}

// Milliseconds.
constexpr unsigned kHour = 3'600'000;    // of operations, until the faults end
constexpr unsigned kRounds = 4'200'000;  // when the phones after it begin
constexpr unsigned kShortGap = 2000;     // the longest between operations that fall into each other
constexpr unsigned kGap = 60'000;        // between others
constexpr unsigned kLongGap = 300'000;   // when everybody is at rest
constexpr unsigned kSequenceGap = 65'000;
constexpr unsigned kPhoneGap = 20'000;  // between two phones of the rounds, at least
constexpr unsigned kRest = 60'000;      // longer than anything that an operation leaves behind
constexpr unsigned kFault = 20'000;

class Artist {
  public:
    explicit Artist(std::uint64_t seed) : m_engine(seed) {}
    Words Draw();

  private:
    unsigned Below(std::uint64_t bound) { return static_cast<unsigned>(m_engine() % bound); }
    std::string Between(unsigned low, unsigned high) {
        return std::to_string(low + Below(high - low + 1));
    }
    std::string OneOf(const Words& words) { return words[Below(words.size())]; }
    std::string LinesBy(unsigned Act::*weight) {
        Words lines;
        for (const Act& act : kActs) {
            lines.insert(lines.end(), act.*weight, act.lines);
        }
        return OneOf(lines);
    }
    void Add(const Words& entries) {
        std::copy_if(entries.begin(), entries.end(), std::back_inserter(m_story),
                     [](const std::string& entry) { return !entry.empty(); });
    }
    std::string Plan();
    std::string Filled(const std::string& lines, char byte, unsigned managers);
    bool Has(const char* route) const {
        return std::find(m_routes.begin(), m_routes.end(), route) != m_routes.end();
    }
    void DrawHour(bool isSequence);
    void DrawRounds();

    std::string Rest() const { return "wait " + std::to_string(kRest); }

    std::mt19937_64 m_engine;
    Words m_story;
    Words m_routes;
    std::string m_chip;
    unsigned m_hosts = 1;
    unsigned m_managers = 1;
};

std::string Artist::Plan() {
    if (Has("ble") && (m_routes.size() == 1 || Below(2) == 0)) {
        return OneOf({"connect#", "disconnect#", "subscribe#", "unsubscribe#", "write#"}) +
               Between(1, 3);
    }
    const unsigned first = 1 + Below(12);
    return OneOf({"read", "write", "control", "interrupt", "any"}) + "#" + std::to_string(first) +
           "-" + std::to_string(first + Below(4)) + "=" +
           OneOf({"refuse:1117", "fail:1117", "short:1", "late:300", "gone"});
}

std::string Artist::Filled(const std::string& lines, char byte, unsigned managers) {
    const std::string manager = Below(managers) == 0 ? "" : "manager 2 ";
    std::string text;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const char name = lines[i] == '%' ? lines[++i] : '\0';
        text += name == 'm'   ? manager
                : name == 'c' ? Content(static_cast<char>('a' + byte % 25), byte)
                : name == 'n' ? Number(byte)
                : name == 'o' ? Number(static_cast<char>(byte + int{kMostOperations}))
                : name == 'p' ? Plan()
                : name == 's' ? Between(300, 4000)
                : name == 'w' ? Between(0, 40)
                : name == 'r' ? std::to_string(kRest)
                : name == 'f' ? std::to_string(kFault)
                              : std::string(1, lines[i]);
    }
    return text;
}

void Artist::DrawHour(bool isSequence) {
    // Operations that fall into each other, that follow at once, and that find everybody at rest.
    const std::pair<unsigned, unsigned> gaps[] = {
        {0, kShortGap}, {kShortGap, kGap}, {kGap, kLongGap}};
    unsigned at = 1000;
    for (unsigned i = 0; i < kMostOperations; ++i) {
        const auto [low, high] = gaps[Below(3)];
        at += !isSequence ? low + Below(high - low) : Below(8) == 0 ? kSequenceGap : Below(300);
        std::string lines = isSequence ? LinesBy(&Act::inSequence) : LinesBy(&Act::inHour);
        const auto has = [&](const char* word) { return lines.find(word) != std::string::npos; };
        // Detection disturbed by a fault takes such a chip for another kind, whose driver leaves
        // the status unread, which then interrupts without end. The fault sweep covers it. One host
        // does one after the other.
        const auto* const chip = simulator::FindKind(simulator::kChipKinds, m_chip);
        const bool inTurn = chip != nullptr && chip->NeedsDetection() &&
                            (has("open") || has("restart") || has("fault"));
        const std::string host = "host " + std::to_string(1 + (inTurn ? 0 : Below(m_hosts))) + " ";
        lines = Filled(lines, static_cast<char>(i + 3), m_managers);
        for (std::size_t end = 0; (end = lines.find('\n', end)) != std::string::npos;) {
            lines.insert(++end, host);
        }
        if (at < kHour) {
            lines.insert(0, "at " + std::to_string(at) + " " + host);
            m_story.push_back(lines);
        }
    }
    m_story.push_back("join\nat " + std::to_string(kHour) + "\n" + Rest());
}

// Phones one after the other: on their own, or so close that one falls into the watch over another;
// some with a renewal or a read just before they come or while they are there.
void Artist::DrawRounds() {
    std::vector<std::pair<unsigned, std::string>> lines;
    unsigned at = kRounds;
    for (unsigned i = 2 + Below(4); i > 0; --i) {
        at += Below(2) == 0 ? 50 + Below(650) : kPhoneGap + Below(kPhoneGap);
        const unsigned stay = 300 + Below(3700);
        lines.emplace_back(at, "in 0 tap " + std::to_string(stay) + " " + OneOf(m_routes));
        const std::string beside = LinesBy(&Act::besidePhone);
        if (!beside.empty()) {
            lines.emplace_back(
                at + Below(200 + stay) - 200,
                "host 1 " + Filled(beside, static_cast<char>(kFirstRoundsNumber + i), 1));
        }
        at += stay;
    }
    std::sort(lines.begin(), lines.end());
    for (const auto& [time, text] : lines) {
        m_story.push_back("at " + std::to_string(time) + " " + text);
    }
    m_story.push_back("join\n" + Rest());
}

Words Artist::Draw() {
    const auto& peripheral = kPeripherals[Below(std::size(kPeripherals))];
    m_routes = peripheral.routes;
    m_chip = peripheral.chip;
    const bool isSequence = Below(4) == 0;
    m_hosts = isSequence ? 1 : 1 + Below(4);
    m_managers = isSequence ? 1 : 1 + Below(2);
    const bool isStuck = m_chip.rfind("fm", 0) == 0 && Below(3) == 0;
    const bool hasHabits = Has("ble") && Below(2) == 0;
    const bool isRefused = hasHabits && Below(2) == 0;
    const std::string refused = "fault unsubscribe#1, disconnect#1\n";
    const auto lastWrite = [&](char number) {
        return "write " + Content(kLastLetter, number) +
               " mac=" + lab::ToHex(std::string(6, kLastLetter)) +
               " model=" + lab::ToHex(std::string(4, kLastLetter));
    };

    // A HID keyboard's answer takes 4 ms and is missed by a reader that is later than that.
    Add({"pc route=" + lab::Joined(m_routes, ",") + When(!m_chip.empty(), " chip=" + m_chip) +
         " late=" + OneOf({"0", "2", Has("hid") ? "2" : "20"}) +
         " changes=" + OneOf({"0", "0", "3", "20"})});
    Add({When(isStuck, "chip-bits 038C 10 10"),  // a mode byte other than 6
         When(hasHabits, "ble-client inside-subscribe=" + OneOf({"0", "30"}) +
                             " inside-write=" + OneOf({"0", "30"}) +
                             " threads=" + OneOf({"1", "2"}) + When(isRefused, " after-refusal")),
         "restart " + Content('a', 1), When(m_managers > 1, "manager 2 start " + Content('b', 2)),
         When(hasHabits || Below(3) == 0, "listener on pause=" + OneOf({"0", "50", "400"}) +
                                              OneOf({"", " reads"}) + OneOf({"", " renews"}))});
    DrawHour(isSequence);
    Add({"listener on", When(isRefused, refused) + "open" + When(isRefused, "\nfault none"),
         "host 1 " + lastWrite('\xE0'), "wait " + (isStuck ? Between(0, 300) : Between(50, 500)),
         "renew " + Number(kFirstSettled), "join\n" + Rest(),
         "listener on pause=" + OneOf({"0", "0", "50", "50 renews"})});
    DrawRounds();
    // Every second last write opens another visit after the one that the stop falls into: each is
    // to be closed.
    const std::string beside =
        OneOf({"write", "manager 4 create", "renew " + Number(kFirstRoundsNumber)});
    Add({"listener on", "in 0 tap 12000", "wait " + Between(300, 3000), beside, Rest(),
         "renew " + Number(kLastNumber), Rest(), "in 0 tap 250", "wait 24000", "in 0 tap 2500",
         When(Below(2) == 0, "wait 500\n" + lastWrite(kLastNumber)), "wait " + Between(0, 1500),
         When(Has("ble"), When(isRefused, refused) + "disconnect" +
                              When(isRefused, "\nfault none\nin 0 tap 500 ble")),
         "stop" + When(m_managers > 1, "\nmanager 2 stop") +
             When(beside == "manager 4 create", "\nmanager 4 stop") + "\n" + Rest()});
    return m_story;
}

}  // namespace

std::vector<std::string> Draw(std::uint64_t seed) {
    return Artist(seed).Draw();
}

}  // namespace soak
