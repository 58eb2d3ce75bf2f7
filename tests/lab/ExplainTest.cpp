// Tests `explain` against runs of the simulator: what it says of a log must be what the run's JSON
// says happened. Also the command line's own help.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "lab/Recorder.h"
#include "lab/explain/ClockText.h"

namespace {

using lab::Json;

constexpr char kStart[] = "timeout 60 " LAB_PROGRAM " ";

std::string Shell(const std::string& command, int status = 0) {
    std::string text;
    std::FILE* pipe = popen(("exec 2>&1; cd " LAB_SCRATCH "; " + command).c_str(), "r");
    for (int byte = 0; (byte = std::fgetc(pipe)) != EOF;) {
        text += static_cast<char>(byte);
    }
    EXPECT_EQ(WEXITSTATUS(pclose(pipe)), status) << command << "\n" << text;
    return text;
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
    return Objects(Shell(std::string(kStart) + "run --seed 1 --json " + arguments + " || true"));
}

std::vector<Json> Explain(const std::string& log) {
    const std::string file = std::string(LAB_SCRATCH "/") +
                             testing::UnitTest::GetInstance()->current_test_info()->name() + ".log";
    std::ofstream(file, std::ios::binary) << log;
    std::vector<Json> story = Objects(Shell(std::string(kStart) + "explain --json " + file));
    const Json& summary = story.at(0);
    EXPECT_EQ(summary["lines"], summary["library"].get<int>() + summary["unknown"].get<int>() +
                                    summary["others"].get<int>());
    EXPECT_EQ(summary["lines"], std::count(log.begin(), log.end(), '\n') +
                                    (log.empty() || log.back() == '\n' ? 0 : 1));
    return story;
}

std::string Digits(long long number, std::size_t width) {
    const std::string text = std::to_string(number);
    return std::string(width - std::min(width, text.size()), '0') + text;
}

// How a host's sink writes a line: {d}ay, {h}our to second, {m}illiseconds, {P}rocess, {T}hread's
// number or {N}ame, {L}evel's letter, {K} milliseconds since the system's start.
std::string Written(const std::string& style, const Json& object, unsigned process) {
    const auto milliseconds = static_cast<long long>(std::llround(object["t"].get<double>()));
    const long long seconds = 86'395 + milliseconds / 1000;  // passes midnight after five seconds
    const std::string thread = object["thread"];
    const std::map<char, std::string> values{
        {'d', Digits(25 + seconds / 86'400, 2)},
        {'h', Digits(seconds / 3600 % 24, 2) + ":" + Digits(seconds / 60 % 60, 2) + ":" +
                  Digits(seconds % 60, 2)},
        {'m', Digits(milliseconds % 1000, 3)},
        {'P', std::to_string(process)},
        {'T', std::to_string(std::hash<std::string>()(thread) % 9000 + 1000)},
        {'N', thread},
        {'L', object["level"] == 4 ? "E" : "W"},
        {'K', std::to_string(milliseconds + 71'234'567)}};
    std::string text;
    for (std::size_t at = 0; at < style.size(); ++at) {
        const bool isField = style[at] == '{';
        text += isField ? values.at(style[at + 1]) : std::string(1, style[at]);
        at += isField ? 2 : 0;
    }
    return text + object["line"].get<std::string>() + "\n";
}

std::string Log(std::vector<Json> objects, const std::string& style, unsigned process = 4711) {
    std::stable_sort(objects.begin(), objects.end(),
                     [](const Json& a, const Json& b) { return a["t"] < b["t"]; });
    std::string log;
    for (const Json& object : objects) {
        log += object["kind"] == "log" ? Written(style, object, process) : "";
    }
    return log;
}

const std::vector<std::string> kStyles{"2026-11-{d}T{h}.{m}Z [{P}:{T}] {L} ",
                                       "{L}/tagport({P}): {d}.11.2026 {h},{m} tid={T} ",
                                       "11-{d} {h}.{m}  {P}  {T} {L} nfc : ",
                                       "{h}:{m} <{N}> | ",
                                       "{K} {T} - ",
                                       "[{h}.{m}][{P}][{N}]",
                                       "{h}.{m} C:\\sink.cpp(100) ",
                                       "x.cpp:100:7 {h}.{m} {T} "};

using Counts = std::map<std::string, int>;

// What the run knows: operations by their results, phones by the events.
Counts FromRun(const std::vector<Json>& objects) {
    static const std::map<std::string, std::string> kOperations{{"Create", "create"},
                                                                {"DeviceInit", "start"},
                                                                {"WriteMessage", "write"},
                                                                {"UpdateNfcData", "update"},
                                                                {"BtConnect", "connect"}};
    Counts counts;
    for (const Json& object : objects) {
        if (object["kind"] == "event" && object["event"] == 1) {
            ++counts["visit ok"];
        }
        if (object["kind"] != "result") {
            continue;
        }
        const bool ok =
            object["result"].is_boolean() ? object["result"].get<bool>() : object["result"] == 0;
        const std::string operation = object["operation"];
        if (kOperations.count(operation) > 0) {
            ++counts[kOperations.at(operation) + (ok ? " ok" : " failed")];
        } else if (operation == "ReadRandNum" && !ok) {
            ++counts["read-number failed"];  // a success has no line of its own
        }
    }
    return counts;
}

Counts FromStory(const std::vector<Json>& items) {
    Counts counts;
    for (const Json& item : items) {
        const std::string kind = item["kind"];
        const std::string outcome = item.value("outcome", "");
        if (kind != "summary" && kind != "note" && kind != "reporting" && kind != "disconnect" &&
            kind != "renew" &&
            item["text"].get<std::string>().find("no listener") == std::string::npos) {
            ++counts[kind + (outcome == "worked" || outcome == "unusual" ? " ok" : " " + outcome)];
        }
    }
    return counts;
}

struct Case {
    std::string arguments;
    const char* cause;  // that the explanation of the failure must contain
    const char* tag;    // chip and route of the summary
};

// Whatever the host's sink writes before each line, the same things happened.
TEST(Explain, SaysOfEveryRunWhatItsJsonSays) {
    const std::string bad = "--script lab/scripts/bad-day.lab ";
    for (const Case& one : {Case{bad, "Code 1117", "FM11NT081 I2C"},
                            Case{bad + "--chip fanli", "Code 258", "Fanli I2C"},
                            Case{bad + "--route usb", "Code 1167", " USB"},
                            Case{bad + "--route hid", "Code 1117", " HID"},
                            Case{bad + "--route ble", "did not take what was sent", " Bluetooth"},
                            Case{"--fault write#4-99=never", "no answer at all", "silent chip I2C"},
                            Case{"--chip silent", "did not answer when", "silent chip I2C"},
                            Case{"--fault open#1+=refuse:2", "Neither the I2C driver", " "},
                            Case{"--fault open#1+=refuse:32", "Code 32: another program", " "}}) {
        const std::vector<Json> run = RunObjects(one.arguments);
        Counts expected = FromRun(run);
        for (const std::string& style : kStyles) {
            SCOPED_TRACE(one.arguments + " as " + style);
            const std::vector<Json> story = Explain(Log(run, style));
            const Json& summary = story.at(0);
            EXPECT_EQ(summary["others"], 0);
            EXPECT_EQ(summary["unknown"], 0);
            if (expected["visit ok"] > 0) {  // there are several threads and times
                EXPECT_TRUE(summary["hasTime"]);
                EXPECT_EQ(summary["hasThread"], style.find("{T}") != std::string::npos ||
                                                    style.find("{N}") != std::string::npos);
                EXPECT_EQ(summary["hasProcess"], style.find("{P}") != std::string::npos);
            }
            EXPECT_EQ(FromStory(story), FromRun(run));
            const Json& process = summary["processes"].at(0);
            EXPECT_EQ(
                process["chip"].get<std::string>() + " " + process["route"].get<std::string>(),
                one.tag);
            EXPECT_NE(process["failures"].dump().find(one.cause), std::string::npos)
                << process["failures"].dump(1);
            double begin = 0;
            double length = 0;
            for (const Json& object : run) {
                if (object["kind"] == "event") {
                    length = object["t"].get<double>() - begin;
                    begin = object["t"];
                }
            }
            const auto visit = std::find_if(story.rbegin(), story.rend(), [](const Json& item) {
                return item["kind"] == "visit";
            });
            EXPECT_TRUE(visit == story.rend() || std::abs(visit->value("ms", 0.) - length) < 1.5);
        }
    }
}

TEST(Explain, TakesNoTimeOfAnUnknownFormForAThread) {
    const std::vector<Json> run = RunObjects("--script lab/scripts/bad-day.lab ");
    const std::vector<Json> story = Explain(Log(run, "{d}.{K}.{m} "));
    EXPECT_FALSE(story.at(0)["hasThread"]);
    EXPECT_EQ(FromStory(story), FromRun(run));
}

TEST(Explain, SaysThatLengthsAreRoughWhereTimesHaveWholeSeconds) {
    const std::vector<Json> run = RunObjects("--script lab/scripts/bad-day.lab ");
    EXPECT_TRUE(Explain(Log(run, "{h} {T} ")).at(0)["hasWholeSeconds"]);
    EXPECT_FALSE(Explain(Log(run, "{h}.{m} {T} ")).at(0)["hasWholeSeconds"]);
}

TEST(Explain, TellsProcessesApartAndNumbersWithoutAnEnd) {
    const std::vector<Json> one = RunObjects("--script lab/scripts/bad-day.lab");
    const std::vector<Json> other =
        RunObjects("--script lab/scripts/day-at-a-desk.lab --chip fanli");
    const std::string& style = kStyles[0];
    std::istringstream a(Log(one, style, 1234));
    std::istringstream b(Log(other, style, 98765));
    std::string mixed = "a line of another program (LogWarnFun\r\n";
    for (std::string line; a || b;) {
        mixed += std::getline(a, line) ? line + "\r\n" : "";
        mixed += std::getline(b, line) ? line + "\r\n" : "";
    }
    Counts expected = FromRun(one);
    for (const auto& [kind, count] : FromRun(other)) {
        expected[kind] += count;
    }
    std::vector<Json> story = Explain(mixed);
    EXPECT_EQ(FromStory(story), expected);
    EXPECT_EQ(story[0]["processes"].size(), 2U);
    EXPECT_EQ(story[0]["processes"][1]["renew"]["worked"], 12);

    // Cut in the middle of the first write, and of a renewal.
    const std::string whole = Log(other, style);
    story = Explain(whole.substr(0, whole.find("NfcWriteTag totalLen")));
    EXPECT_EQ(FromStory(story)["write open"], 1);
    story = Explain(whole.substr(0, whole.find("LocalWriteRand WriteNfc")));
    EXPECT_EQ(story[0]["processes"][0]["renew"]["atEnd"], 1);
    story = Explain(whole.substr(0, whole.find("LocalWriteRand WriteNfc")) + "\n" + whole);
    EXPECT_EQ(story[0]["processes"][0]["renew"]["open"], 1);
    EXPECT_EQ(story[0]["processes"][0]["renew"]["atEnd"], 0);

    // A process without a number ends in the middle of a visit, and the next one starts.
    const std::string& bare = kStyles[3];
    const std::string begun = Log(one, bare);
    story = Explain(begun.substr(0, begun.find("[NFC] RF field has left")) + "\n" + begun);
    Counts twice = FromRun(one);
    EXPECT_EQ(FromStory(story)["visit ok"], twice["visit ok"]);
    EXPECT_EQ(story[0]["processes"][0]["visit"]["open"], 1);
    EXPECT_EQ(story[0]["processes"][0]["visit"]["atEnd"], 0);  // not the last one
}

TEST(Explain, NamesWhatIsUnusual) {
    struct Oddity {
        std::string log;
        const char* text;
    };
    const std::string visit =
        " NFC_SELECT_IN_FIELD 1st report(LogWarnFun)\n1:00:0# [NFC] RF field has left(LogWarnFun)\n"
        "1:00:0# NFC_defer call done: 0011223344556677(LogWarnFun)\n";
    const auto at = [&](int second, int later) {
        std::string text = visit;
        for (std::size_t hash = 0; (hash = text.find('#')) != std::string::npos;) {
            text[hash] = static_cast<char>('0' + later);
        }
        return "1:00:0" + std::to_string(second) + text;
    };
    const std::string hid = "1:00:00 NFC_ select hid device(LogWarnFun)\n";
    const std::string enter = "1:00:01 NFC_SELECT_IN_FIELD 1st report(LogWarnFun)\n";
    for (const Oddity& one :
         {Oddity{at(1, 2) + at(2, 3) + at(3, 4), "A chain of 3 visits"},
          Oddity{hid + enter + at(4, 5), "before its leave was reported"},
          Oddity{enter, "has not left when the log ends"},
          Oddity{enter + "1:00:02 [NFC] RF field has left(LogWarnFun)\n"
                         "1:00:05 NFC_defer call done: 0011223344556677(LogWarnFun)\n",
                 "listener took 3000 ms"},
          Oddity{"1:00:00 Nfc chip Fanli(LogErrorFun)\n" + at(1, 8), "did not report its leave"},
          Oddity{enter + "1:00:01 NFC staticCallback is null(LogErrorFun)\n", "no listener"},
          Oddity{"1:00:01 NFC_defer call done: 0011223344556677(LogWarnFun)\n",
                 "its arrival is not in this log"},
          Oddity{"1:10:00 NfcManager::Init()(LogWarnFun)\n" + at(1, 2) + at(3, 4),
                 "The clock goes back"},
          Oddity{"1:00:01 NFC_WriteMessage with dynamic delay begin!(LogWarnFun)\n",
                 "not finished when the log ends"}}) {
        const std::vector<Json> story = Explain(one.log);
        EXPECT_TRUE(std::any_of(story.begin(), story.end(),
                                [&](const Json& item) {
                                    return item.value("outcome", "") != "worked" &&
                                           item.value("text", "").find(one.text) !=
                                               std::string::npos;
                                }))
            << one.log << Json(story).dump(1);
    }
    EXPECT_EQ(FromStory(Explain(at(1, 2) + at(4, 5) + at(7, 8))), (Counts{{"visit ok", 3}}));
    std::string night = at(1, 2);
    for (std::size_t hour = 0; (hour = night.find("1:00:02")) != std::string::npos;) {
        night.replace(hour, 7, "00:00:02");
    }
    EXPECT_EQ(Explain(night.replace(0, 7, "23:59:59"))[1]["ms"], 3000.0);
}

TEST(Explain, GivesTheCauseAndTheAdviceOfAnErrorCode) {
    struct Failure {
        std::string log;
        const char* cause;
        std::string advice;
    };
    const std::string usb = "NFC_ select USB Driver(LogWarnFun)\n";
    const std::string i2c = "NFC_ select I2C Driver(LogWarnFun)\n";
    const std::string again = "Then call DeviceInit in the host, and then WriteMessage.";
    const std::string gone = "NFC_WriteFile Error  1167(LogErrorFun)\n";
    for (const Failure& one :
         {Failure{usb + gone, "not connected", "Plug the keyboard in again. " + again},
          Failure{i2c + gone, "not connected",
                  "With a chip on I2C: restart its driver in the device manager. " + again},
          Failure{usb + "Nfc ReadReg 0 failed!(LogErrorFun)\n" + gone, "not connected", again},
          Failure{i2c + "NFC GetOverlappedResult error: 31(LogWarnFun)\n", "does not work",
                  "Check the driver of the tag in the device manager. Update"},
          Failure{"NFC_Error opening Spb driver, last error = 32(LogErrorFun)\n"
                  "NFC_Error opening any driver, last error = 259(LogErrorFun)\n",
                  "another program has", "Find the other program"},
          Failure{i2c + "NFC WaitForSingleObject return error: 258(LogErrorFun)\n",
                  "no answer at all within two seconds", "Restart the driver. "},
          Failure{"NFC - GetCurrentDirectoryW failed (5).(LogErrorFun)\n", "access is denied",
                  "Start the host in a directory"}}) {
        const Json failure = Explain(one.log).at(0)["processes"][0]["failures"][0];
        EXPECT_NE(failure.value("text", "").find(one.cause), std::string::npos) << failure;
        EXPECT_NE(failure.value("do", "").find(one.advice), std::string::npos) << failure;
    }
}

TEST(Explain, ReadsAPipeUtf16AndWhatTheRunItselfPrints) {
    const std::string plain = Shell(std::string(kStart) +
                                    "run --seed 1 --json --route hid "
                                    "--script lab/scripts/bad-day.lab "
                                    ">log 2>/dev/null; cat log | " +
                                    kStart + "explain --json -");
    for (const char* encode : {"iconv -t UTF-16 <log", "iconv -t UTF-16BE <log",
                               "sed 's/$/\\r/' log", "sed 's/\\\\n(/\\n(/' log"}) {
        const auto texts = [](const std::vector<Json>& items) {
            std::string all;
            for (const Json& item : items) {
                all += item.value("text", "") + item["kind"].get<std::string>() + "\n";
            }
            return all;
        };
        EXPECT_EQ(
            texts(Objects(Shell(encode + (" | " + std::string(kStart)) + "explain --json -"))),
            texts(Objects(plain)))
            << encode;
    }
    const std::string live = Shell(std::string(kStart) +
                                   "run --seed 1 --explain --route hid "
                                   "--script lab/scripts/bad-day.lab");
    // There is no log yet, so no line has a number.
    for (std::size_t at = 0; (at = live.find("line ", at)) != std::string::npos;) {
        at = std::min(live.find_first_not_of(' ', at + std::string("line ").size()), live.size());
        EXPECT_TRUE(at == live.size() || live[at] < '0' || live[at] > '9') << live.substr(at, 20);
    }
    for (const Json& item : Objects(plain)) {
        EXPECT_NE(live.find(item.value("text", "").substr(0, 60)), std::string::npos) << item;
    }
}

TEST(Explain, ShowsTheTerminalNoControlCharacterAndNamesEveryBadFile) {
    const std::string shown = Shell(
        "printf '\\033]0;x\\007 \\0 12:00:00 \\233 NFC_SELECT_IN_FIELD 1st report(LogWarnFun)"
        "\\n12:00:01 \\033[2J [NFC] RF field has left(LogWarnFun)' | " +
        std::string(kStart) + "explain -");
    EXPECT_TRUE(std::all_of(shown.begin(), shown.end(), [](char c) {
        return c == '\n' || (c >= ' ' && c < 0x7F);
    })) << shown;
    EXPECT_NE(shown.find("not finished when the log ends"), std::string::npos) << shown;
    const std::string processes = Shell(
        "(head -c 1500000 /dev/zero; printf '\\npid=\\0077 NfcManager::Init()(LogWarnFun)\\n"
        "pid=\\0078 NfcManager::Init()(LogWarnFun)') | " +
        std::string(kStart) + "explain -");
    EXPECT_NE(processes.find("Process \\x078"), std::string::npos) << processes;
    for (const auto& [call, part] :
         std::map<std::string, std::string>{{"explain /tmp", "/tmp: is a directory"},
                                            {"explain no-log", "no-log: is not there"},
                                            {"explian x", "did you mean \"explain\"?"},
                                            {"run --routt i2c", "did you mean \"--route\"?"},
                                            {"run --explain --json", "--explain"}}) {
        EXPECT_NE(Shell(kStart + call, 2).find(part), std::string::npos) << call;
    }
    Shell(std::string(kStart) + "explain - </dev/null >/dev/full", 1);
    for (const char* call : {"explain - <&-", "image show - <&-"}) {
        Shell(kStart + std::string(call), 1);
    }
    EXPECT_NE(Shell("printf '\\037\\213' | " + std::string(kStart) + "explain -", 2).find("zcat"),
              std::string::npos);
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
    EXPECT_TRUE(alone && !alone->hasDate && alone->micros == kClock && alone->begin == 6);
    EXPECT_EQ(FindClock("11-25 13:26:48.120")->micros - FindClock("11-24 23:00:00")->micros,
              kClock + 3'600'000'000LL);
    for (const char* text : {"", "4711:1234", "25:61:00", "99:00:00", "1.2.3.4 nfc 132648"}) {
        EXPECT_FALSE(FindClock(text)) << text;
    }
}

}  // namespace
