// Tests `explain` against runs of the simulator: what it says of a log must be what the run's JSON
// says happened.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "lab/Recorder.h"
#include "lab/Words.h"
#include "lab/explain/Prefix.h"
#include "tests/lab/Shell.h"

namespace {

using lab::Json;

const std::string kLab = "timeout 60 " LAB_PROGRAM " ";
const std::string kBadDay = "--script lab/scripts/bad-day.lab ";
const std::string kDesk = "--script lab/scripts/day-at-a-desk.lab ";

std::string Shell(const std::string& command, int status = 0) {
    const Outcome outcome = RunShell("exec 2>&1; " + command);
    EXPECT_EQ(outcome.status, status) << command << "\n" << outcome.text;
    return outcome.text;
}

std::vector<Json> Objects(const std::string& lines) {
    std::vector<Json> objects;
    std::istringstream stream(lines);
    for (std::string line; std::getline(stream, line);) {
        objects.push_back(Json::parse(line));
    }
    return objects;
}

std::vector<Json> RunObjects(const std::string& arguments) {
    return Objects(Shell(kLab + "run --seed 1 --json " + arguments + " || true"));
}

// The name of a file with this text. It is the test's own: tests run beside each other.
std::string File(const std::string& text, const std::string& ending = ".log") {
    const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name() + ending;
    std::ofstream(LAB_SCRATCH "/" + name, std::ios::binary) << text;
    return name;
}

std::vector<Json> Play(const std::string& script, const std::string& arguments = "") {
    return RunObjects("--script " + File(script, ".lab") + " " + arguments);
}

struct Story {
    std::vector<Json> items;
    Json summary;
    Json Process(std::size_t which = 0) const { return summary["processes"][which]; }
};

// What `explain` says with these arguments. The summary comes last.
Story ExplainFiles(const std::string& arguments) {
    Story story{Objects(Shell(kLab + "explain --json " + arguments)), {}};
    story.summary = story.items.back();
    EXPECT_EQ(story.summary["kind"], "summary");
    story.items.pop_back();
    return story;
}

Story Explain(const std::string& log) {
    return ExplainFiles(File(log));
}

const std::string kFullStyle = "%FT%T.{m}Z [{P}:{T}] {L} ";

// The lines of a run as a host's sink writes them. A style is one for strftime, with
// {m}illiseconds, {S}econds since 1970, {P}rocess, {T}hread's number or {N}ame, {L}evel's letter or
// {D}igits, {K} milliseconds since the system's start, and {C}ounter of all programs' lines.
// Midnight passes after five seconds.
std::string Log(std::vector<Json> objects, const std::string& style = kFullStyle,
                int process = 4711) {
    std::stable_sort(objects.begin(), objects.end(),
                     [](const Json& a, const Json& b) { return a["t"] < b["t"]; });
    std::string log;
    long long counter = 0;
    for (const Json& object : objects) {
        if (object["kind"] != "log") {
            continue;
        }
        const long long milliseconds = std::llround(object["t"].get<double>());
        const std::time_t seconds = 1'764'028'795 + milliseconds / 1000;
        const std::string thread = object["thread"];
        counter += 1 + milliseconds % 3;
        const std::map<char, std::string> values{
            {'m', std::to_string(1000 + milliseconds % 1000).substr(1)},
            {'S', std::to_string(seconds)},
            {'P', std::to_string(process)},
            {'T', std::to_string(std::hash<std::string>()(thread) % 9000 + 1000)},
            {'N', thread},
            {'L', object["level"] == 4 ? "E" : "W"},
            {'D', object["level"] == 4 ? "40" : "30"},
            {'K', std::to_string(milliseconds + 71'234'567)},
            {'C', std::to_string(100'000'000 + counter).substr(1)}};
        std::ostringstream prefix;
        prefix << std::put_time(std::gmtime(&seconds), style.c_str());
        for (const std::string& part : lab::Split(prefix.str(), '{')) {
            const bool isField = part.size() > 1 && part[1] == '}';
            log += isField ? values.at(part[0]) + part.substr(2) : part;
        }
        log += object["line"].get<std::string>() + "\n";
    }
    return log;
}

using Counts = std::map<std::string, int>;

// What the run knows: operations by their results, phones by the events.
Counts FromRun(const std::vector<Json>& objects) {
    static const std::map<std::string, std::string> kKinds{
        {"Create", "create"},        {"DeviceInit", "start"},  {"WriteMessage", "write"},
        {"UpdateNfcData", "update"}, {"BtConnect", "connect"}, {"ReadRandNum", "read-number"}};
    Counts counts;
    for (const Json& object : objects) {
        const Json result = object.value("result", Json());
        const auto kind = kKinds.find(object.value("operation", ""));
        if (object["kind"] == "event" && object["event"] == 1) {
            ++counts["visit ok"];
        } else if (object["kind"] == "result" && kind != kKinds.end()) {
            ++counts[kind->second + (result == true || result == 0 ? " ok" : " failed")];
        }
    }
    counts.erase("read-number ok");  // it has no line of its own
    return counts;
}

// What the story says of the same.
Counts FromStory(const Story& story) {
    static const std::set<std::string> kOthers{"note", "reporting", "disconnect", "renew"};
    Counts counts;
    for (const Json& item : story.items) {
        const std::string kind = item["kind"];
        const std::string outcome = item["outcome"];
        const bool isSilent = item["text"].dump().find("no listener") != std::string::npos;
        if (kOthers.count(kind) == 0 && !isSilent) {
            ++counts[kind + (outcome == "worked" || outcome == "unusual" ? " ok" : " " + outcome)];
        }
    }
    return counts;
}

// Each text as a line of the library.
std::string Lines(const std::vector<std::string>& texts) {
    std::string log;
    for (const std::string& text : texts) {
        log += text + "(LogErrorFun)\n";
    }
    return log;
}

// The log of a script.
std::string PlayedLog(const std::string& script, const std::string& arguments = "") {
    return Log(Play(script, arguments));
}

struct Told {
    std::string log;
    std::string part;
    std::string other;
};

// Both parts are in the JSON of one thing that is told.
void ExpectTold(const std::vector<Told>& rows) {
    for (const Told& row : rows) {
        const std::string told =
            Shell(kLab + "explain --json " + File(row.log) + " | grep -v summary");
        EXPECT_TRUE(lab::Any(lab::Split(told, '\n'),
                             [&](const std::string& item) {
                                 return item.find(row.part) != std::string::npos &&
                                        item.find(row.other) != std::string::npos;
                             }))
            << row.part << " " << row.other << "\n"
            << told;
    }
}

struct Scenario {
    std::string arguments;
    const char* cause;  // that a failure of the summary names
    const char* chip;
    const char* route;
};
const std::vector<Scenario> kScenarios{
    {kBadDay, "Code 1117", "FM11NT081", "I2C"},
    {kBadDay + "--chip fanli", "Code 258", "Fanli", "I2C"},
    {kBadDay + "--route usb", "Code 1167", "", "USB"},
    {kBadDay + "--route hid", "Code 1117", "", "HID"},
    {kBadDay + "--route ble", "did not take what was sent", "", "Bluetooth"},
    {kDesk + "--chip like-fm11n", "", "like FM11N", "I2C"},
    {kDesk + "--chip like-fanli", "", "unknown, like Fanli", "I2C"}};

TEST(Explain, CountsWhatEachRunDidAndNamesTagAndCause) {
    for (const Scenario& one : kScenarios) {
        const std::vector<Json> run = RunObjects(one.arguments);
        const Story story = Explain(Log(run));
        SCOPED_TRACE(one.arguments);
        EXPECT_EQ(FromStory(story), FromRun(run));
        EXPECT_EQ(story.Process()["chip"], one.chip);
        EXPECT_EQ(story.Process()["route"], one.route);
        EXPECT_NE(story.Process()["failures"].dump().find(one.cause), std::string::npos);
    }
}

TEST(Explain, FindsWhatIsBeforeEachLine) {
    const std::vector<Json> run = RunObjects(kBadDay);
    // A time, a process, a thread, whole seconds.
    for (const auto& [style, facts] :
         std::map<std::string, std::string>{{kFullStyle, "TPT-"},
                                            {"{L}/tagport({P}): %d.%m.%Y %T,{m} tid={T} ", "TPT-"},
                                            {"%m-%d %T.{m}  {P}  {T} {L} nfc : ", "TPT-"},
                                            {"%T.{m} {D} {T} - ", "T-T-"},
                                            {"{L}%m%d %T.{m} {T} x.cc:123] ", "T-T-"},
                                            {"[%a %b %d %T %Y] ", "T--W"},
                                            {"[%T.{m}][{P}][{N}]", "TPT-"},
                                            {"%T.{m} C:\\sink.cpp(100) ", "T---"},
                                            {"x.cpp:100:7 %T.{m} {T} ", "T-T-"},
                                            {"%T {T} ", "T-TW"},
                                            {"{S} {T} ", "T-TW"},
                                            {"{S}.000 {T} ", "T-TW"},
                                            {"{C} [{T}] ", "--T-"},
                                            {"{C} {K} [{T}] ", "T-T-"}}) {
        const Story story = Explain(Log(run, style));
        std::string found;
        for (const std::string field : {"hasTime", "hasProcess", "hasThread", "hasWholeSeconds"}) {
            found += story.summary[field] == true ? field[3] : '-';
        }
        EXPECT_EQ(found, facts) << style;
        EXPECT_EQ(FromStory(story), FromRun(run)) << style;
    }
    // As far as a pipe has come, the host's thread alone has written: it is no process.
    EXPECT_FALSE(Explain(Log(run, "[%T.{m}] [{T}] ").substr(0, 2000)).summary["hasProcess"]);
    // Too few lines for a counter to repeat by chance.
    EXPECT_FALSE(Explain(Log(run, "{C} ").substr(0, 600)).summary["hasTime"]);
    // A level that happens to keep two kinds of thread apart.
    const std::string levels = "W NFC_WriteMessage with dynamic delay begin!(LogWarnFun)\n" +
                               ("E " + Lines({"NFC WaitOnInterruptLoop return"}));
    EXPECT_FALSE(Explain(levels + levels).summary["hasThread"]);
}

TEST(Explain, MeasuresAVisitAcrossMidnight) {
    const std::vector<Json> run = Play("wait 4000\ntap 2000\n", "--route hid");
    for (const std::string style : {"%T.{m} {T} ", "\x1B[{D}m%T.{m} {T} "}) {
        EXPECT_EQ(Explain(Log(run, style)).Process()["visit"]["longestMs"], 2000.0) << style;
    }
}

TEST(Explain, KeepsInterleavedProcessesApart) {
    const std::vector<Json> one = RunObjects(kBadDay);
    const std::vector<Json> other = RunObjects(kDesk + "--chip fanli");
    const std::string a = File(Log(one, kFullStyle, 1234), ".a");
    const std::string b = File(Log(other, kFullStyle, 98765), ".b");
    const std::string mixed =
        Shell("echo 'a line of another program (LogWarnFun'; paste -d '\\n' " + a + " " + b +
              " | sed '/^$/d; s/$/\\r/'");
    Counts expected = FromRun(one);
    for (const auto& [kind, count] : FromRun(other)) {
        expected[kind] += count;
    }
    const Story story = Explain(mixed);
    EXPECT_EQ(FromStory(story), expected);
    EXPECT_EQ(story.summary["processes"].size(), 2U);
    EXPECT_EQ(story.Process(1)["renew"]["worked"], 12);
    // A later one with one thread; threads that are no processes, where a listener calls the
    // library.
    const auto count = [](const std::string& log) {
        return Explain(log).summary["processes"].size();
    };
    EXPECT_EQ(count(Log(one) + Log(other, kFullStyle, 98765).substr(0, 2000)), 2U);
    const std::vector<Json> calls = Play("start\nlistener on renews\ntap\ntap\n");
    EXPECT_EQ(count(Log(calls, "%T.{m} {T} ")) + count(Log(calls, "%T.{m} {T} {P} ")), 2U);
    // The few lines of a short visit, with a number that is the time.
    const std::vector<Json> visit = RunObjects("--route i2c");
    EXPECT_EQ(count(Log({visit.end() - 20, visit.end()}, "{K} [{N}] ")), 1U);
}

TEST(Explain, NamesWhatHasNoEnd) {
    using Cut = std::array<std::string, 3>;  // before what, the kind of it, its figure
    const std::string whole = Log(RunObjects(kDesk), "%T.{m} ");
    for (const auto& [before, kind, figure] : {Cut{"NfcWriteTag totalLen", "write", "atEnd"},
                                               {"LocalWriteRand WriteNfc", "renew", "atEnd"},
                                               {"LocalWriteRand WriteNfc", "renew", "open"},
                                               {"[NFC] RF field has left", "visit", "open"}}) {
        const bool isAgain = figure == "open";  // the log does not end here, but begins anew
        const std::string log = whole.substr(0, whole.find(before)) + "\n";
        const Json figures = Explain(log + (isAgain ? whole : "")).Process()[kind];
        EXPECT_EQ(figures[figure], 1) << before << figures;
        EXPECT_EQ(figures["atEnd"], isAgain ? 0 : 1) << before << figures;
    }
}

TEST(Explain, SaysWhyByTheLinesAround) {
    const std::string url = "url=" + std::string(200, 'x') + "\n";
    const std::string noNumber = "write number=" + std::string(64, '0') + "\n";
    ExpectTold(
        {{PlayedLog("create " + url), "URL of the message is longer", "at most 162 bytes"},
         {PlayedLog("write " + url + "write\n"), "spoiled by", R"(do":"Create a new manager.)"},
         {PlayedLog("disconnect\nwrite\n", "--route hid"), "Nothing was sent", "SetMcuKb"},
         {PlayedLog("disconnect\nrenew random\nwait 500\n", "--route ble"), "Nothing was sent",
          "BtConnect"},
         {PlayedLog("fault any#1+=never\nread-number\n", "--route usb"),
          R"(kind":"read-number","outcome":"failed")", R"(ms":2010.0)"},
         {PlayedLog(noNumber), "zero where a written number is not", "SetRandomNumber"},
         {Lines({"NFC Interrupt get Overlapped result 996", "NFC_DeferCallThread return",
                 "NFC WaitOnInterruptLoop return"}),
          R"(reporting","outcome":"worked")", "because a manager was released"},
         {Lines({"NfcProxy::ReadNfcContent", "NfcHead parse begin", "length error"}),
          "not a whole message", R"(do":"Write a message)"},
         {Lines({"NFC_ get confFile: NfcUri.ini", "NFC_ GetUriInfo fail", "NfcManager::Init()",
                 "m_uri size is 0", "SetModel unsupport!", "NfcManager Init SetContent failed",
                 "NfcManager:: Create failed"}),
          R"(kind":"create")", R"(NfcUri.ini, or the file is missing.","do":"Correct config)"}});
}

TEST(Explain, SaysOfAWriteWhatIsOnTheTag) {
    const std::string begin = "NFC_WriteMessage with dynamic delay begin!";
    const std::string notFound = "UpdateNfcData ReadRandNum failed";
    const std::string failed = R"(outcome":"failed")";
    const auto worked = [&](const std::string& step) {
        return Lines({begin, step, "NfcThreadCreate pass"});
    };
    ExpectTold(
        {{Lines({begin, "UpdateNfcData Write failed"}), failed, "failed: the message is not on"},
         {Lines({begin, notFound}), failed, "\"WriteMessage failed: nothing was sent to a tag.\""},
         {Lines({begin, "[NFC] BtWrite success!", notFound}), failed,
          "\"WriteMessage failed: the image was written, but not found on the tag.\""},
         {Lines({begin, "NfcThreadCreate fail"}), failed,
          "\"WriteMessage failed: the threads that report phones could not be started.\""},
         {worked("ReadMessage ReadNfcContent failed"), R"(outcome":"unusual")",
          R"(do":"Nothing, if it is rare. Otherwise: The line)"},
         // What comes from the host's own configuration comes with every write.
         {worked("uri size is 8, but the random number is read back for a size of 50"),
          R"(outcome":"unusual")", R"(do":"Use a URI)"},
         {worked("NdefMessage set information failed"), R"(outcome":"unusual")",
          R"(do":"Correct config)"}});
}

TEST(Explain, NamesWhatIsUnusual) {
    std::string back = "1:10:00 NfcManager::Init()(LogWarnFun)\n";
    for (int line = 0; line < 8; ++line) {
        back += "1:00:0" + std::to_string(line) + " NFC_begin wait notify(LogWarnFun)\n";
    }
    const std::string odd = "NFC not valid data";
    const std::string left = "NFC_defer call done: 0011223344556677";
    const std::string unusual = R"(outcome":"unusual")";
    ExpectTold(
        {{PlayedLog("start\nenter\nwait 1000\nwrite\nwait 9000\nleave\nwait 9000\n"), unusual,
          "a WriteMessage while it was there has it reported a second time"},
         {PlayedLog("start\nlistener on pause=3000\ntap\n"), unusual, "listener took 3000 ms"},
         {PlayedLog("start\nlistener off\ntap 300\nwait 500\n", "--route hid"), unusual,
          "no listener"},
         {PlayedLog("start\nenter\nwait 12000\n", "--chip fanli"), unusual, "report its leave"},
         {PlayedLog("repeat 3\ntap 300\nend\n", "--route hid"), unusual, "A chain of 3 visits"},
         {back, R"(line":2,"time":"1:00:00")", "The clock goes back"},
         {Lines({left}), unusual, "its arrival is not in this log"},
         {Lines({odd, odd, odd, left}), unusual, R"(times":3,"lastLine":3)"}});
}

TEST(Explain, GivesTheAdviceOfAnErrorCodeForTheRoute) {
    const std::string usb = "NFC_ select USB Driver";
    const std::string i2c = "NFC_ select I2C Driver";
    const std::string again = "Then call DeviceInit in the host, and then WriteMessage.";
    const std::string gone = "NFC Error 1167, with 20 bytes written";
    ExpectTold(
        {{Lines({usb, gone}), "not connected", R"(do":"Plug the keyboard in again. )" + again},
         {Lines({i2c, gone}), "not connected",
          "With a chip on I2C: restart its driver in the device manager. " + again},
         {Lines({usb, "Nfc ReadReg 0 failed!", gone}), "not connected", again},
         {Lines({"NFC_Error opening Spb driver, last error = 32",
                 "NFC_Error opening any driver, last error = 259"}),
          "another program has", "Find the other program"},
         {Lines({i2c, "NFC WaitForSingleObject return error: 258"}),
          "no answer at all within two seconds", "Restart the driver. "},
         {Lines({"NFC - GetCurrentDirectoryW failed (5)."}), "access is denied",
          "Start the host in a directory"}});
}

TEST(Explain, HasTheChipAndTheKeyboardOfOnePcInTheSummary) {
    const std::vector<Json> run = Play("pc route=i2c,ble\nstart\ntap\ntap 800 ble\n");
    const Story story = Explain(Log(run));
    const Json expected = {{{"route", "I2C"}, {"chip", "FM11NT081"}},
                           {{"route", "Bluetooth"}, {"chip", ""}}};
    EXPECT_EQ(story.Process()["tags"], expected);
    EXPECT_EQ(FromStory(story), FromRun(run));
}

TEST(Explain, ReadsEveryEncoding) {
    const std::string name = File(Log(RunObjects(kBadDay)));
    const std::string explain = kLab + "explain - | sed 's/^standard input.*//'";
    const std::string plain = Shell("f=" + name + "; cat $f | " + explain);
    for (const char* encode : {"iconv -t UTF-16 $f", "iconv -t UTF-16BE $f", "sed 's/$/\\r/' $f",
                               "(head -n 300 $f; tail -n +301 $f | iconv -t UTF-16LE)",
                               "(head -n 300 $f | iconv -t UTF-16; tail -n +301 $f)"}) {
        EXPECT_EQ(Shell("f=" + name + "; " + encode + " | " + explain), plain) << encode;
    }
}

TEST(Explain, TellsTheSameWhileTheRunGoesOn) {
    const std::string run = kLab + "run --seed 1 --route hid " + kBadDay;
    const std::string live = Shell(run + "--explain || true");
    EXPECT_EQ(live.find("line 1"), std::string::npos);  // there is no log yet
    Shell(run + "--json >run.json || true");
    for (const Json& item : ExplainFiles("run.json").items) {
        EXPECT_NE(live.find(item.value("text", "").substr(0, 60)), std::string::npos) << item;
    }
}

TEST(Explain, ReadsSeveralFilesInTheirOrder) {
    const std::string log = Log(RunObjects(kDesk));
    const std::size_t cut = log.find('\n', log.find("NfcWriteTag totalLen")) + 1;
    const std::string files = File(log.substr(0, cut), ".1") + " " + File(log.substr(cut), ".2");
    const Story whole = Explain(log);
    const Story story = ExplainFiles(files);
    EXPECT_EQ(FromStory(story), FromStory(whole));
    EXPECT_EQ(story.summary["lines"], whole.summary["lines"]);
    EXPECT_EQ(story.items.back()["file"], "ReadsSeveralFilesInTheirOrder.2");
    EXPECT_LT(story.items.back()["line"], whole.items.back()["line"]);
    EXPECT_NE(Shell(kLab + "explain " + files).find("InTheirOrder.2:1"), std::string::npos);
}

TEST(Explain, ShowsTheFailuresAloneAndWhereTheyAreInTheSummary) {
    const std::string name = File(Log(RunObjects(kBadDay)));
    const Story story = ExplainFiles("--failures " + name);
    EXPECT_GT(story.items.size(), 2U);
    for (const Json& item : story.items) {
        EXPECT_EQ(item["outcome"], "failed");
    }
    const std::string text = Shell(kLab + "explain " + name);
    const std::size_t summary = text.find(name + ": ");
    const std::string line = story.Process()["failures"][0]["line"].dump();
    EXPECT_GT(summary, text.find("FAILED"));
    EXPECT_NE(text.find("line " + line + ": ", summary), std::string::npos);
}

TEST(Explain, TellsAPipeBeforeItEnds) {
    const std::string name = File(Log(RunObjects(kDesk)));
    for (const std::string option : {"", "--json "}) {
        const std::string told =
            Shell("bash -c 'coproc E { " + kLab + "explain " + option + "-; }; in=${E[1]}; cat " +
                  name + " >&$in; read -r line <&${E[0]}; echo \"$line\"'");
        EXPECT_NE(told.find("Create: the manager exists."), std::string::npos) << told;
    }
}

TEST(Explain, WrapsLinesToTheWidthOfTheTerminal) {
    std::string words;
    for (int word = 0; word < 40; ++word) {
        words += " word" + std::to_string(word);
    }
    std::size_t indent = 20;  // of the first line, which `Wrapped` leaves out
    for (const std::string& line : lab::Split(lab::Wrapped(words, 80, indent, 34), '\n')) {
        EXPECT_LE(line.size() + std::exchange(indent, 0), 80U) << line;
        EXPECT_TRUE(line.find("word") == 34 || line.find(" word0") == 0) << line;
    }
}

TEST(Explain, ShowsNoControlCharacter) {
    const std::string shown = Shell(
        "printf '\\033]0;x\\007 \\0 12:00:00 \\233 NFC_SELECT_IN_FIELD 1st report(LogWarnFun)"
        "\\n12:00:01 \\033[2J [NFC] RF field has left(LogWarnFun)' | " +
        kLab + "explain -");
    EXPECT_TRUE(std::all_of(shown.begin(), shown.end(), [](char c) {
        return c == '\n' || (c >= ' ' && c < 0x7F);
    })) << shown;
    EXPECT_NE(shown.find("not finished when the log ends"), std::string::npos) << shown;
}

TEST(Explain, RefusesWhatItCannotRead) {
    const std::string name = File(Shell("tac " + File(Log(RunObjects(kDesk)), ".forwards")));
    for (const auto& [call, part] : std::map<std::string, std::string>{
             {"explain " + name + " /dev/null", "newest line first: tac " + name},
             {"explain /tmp", "/tmp: is a directory"},
             {"explain no-log", "no-log: is not there"},
             {"explian x", "did you mean \"explain\"?"},
             {"explain --failure x", "did you mean \"--failures\"?"},
             {"run --explain --json", "--explain"}}) {
        EXPECT_NE(Shell(kLab + call, 2).find(part), std::string::npos) << call;
    }
    EXPECT_NE(Shell("printf '\\037\\213' | " + kLab + "explain -", 2).find("zcat"),
              std::string::npos);
    for (const char* call :
         {"explain - </dev/null >/dev/full", "explain - <&-", "run --script - <&-"}) {
        Shell(kLab + call, 1);
    }
}

TEST(Explain, UnderstandsTheClocksThatSinksWrite) {
    using lab::explain::FindClock;
    constexpr std::int64_t kClock = (13 * 3600 + 26 * 60 + 48) * 1'000'000LL + 120'000;
    const auto day = FindClock("2026-11-25 00:00:00")->micros;
    for (const char* text : {"2026-11-25 13:26:48.120", "x [2026/11/25T13:26:48,120+01:00] W",
                             "25.11.2026 13:26:48:120", "11/25/2026 1:26:48.12 PM",
                             "20261125-132648.120", "25 Nov 2026 13:26:48.120",
                             "25/Nov/2026:13:26:48.120 +0100", "Nov 25 2026 13:26:48.120"}) {
        const auto clock = FindClock(text);
        ASSERT_TRUE(clock && clock->hasDate) << text;
        EXPECT_EQ(clock->micros - day, kClock) << text;
    }
    const auto alone = FindClock("T1234 13:26:48.120] ");
    EXPECT_TRUE(alone && !alone->hasDate && alone->micros == kClock &&
                alone->text == "13:26:48.120");
    EXPECT_EQ(FindClock("11-25 13:26:48.120")->micros - FindClock("11-24 23:00:00")->micros,
              kClock + 3'600'000'000LL);
    for (const char* text : {"", "4711:1234", "25:61:00", "99:00:00", "1.2.3.4 nfc 132648"}) {
        EXPECT_FALSE(FindClock(text)) << text;
    }
}

}  // namespace
