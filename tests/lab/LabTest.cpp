// Tests tagport-lab from the outside: its output and its exit status. The parser of scripts and the
// annotator of images are called directly.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "lab/Hex.h"
#include "lab/ImageCommand.h"
#include "lab/ImageNotes.h"
#include "lab/Recorder.h"
#include "lab/Script.h"
#include "lab/help/ScriptHelp.h"
#include "tests/lab/Shell.h"

namespace {

// `input` is a format of printf; `arguments` may redirect standard output.
Outcome Lab(const std::string& arguments, const std::string& input = {}) {
    return RunShell("printf '" + input + "' | timeout 60 " LAB_PROGRAM " 2>&3 " + arguments);
}

struct Call {
    std::string arguments;
    std::string input;
    int status;
    std::string text;  // a part of the output
};

Outcome ExpectOutcome(const Call& call) {
    const Outcome outcome = Lab(call.arguments, call.input);
    EXPECT_EQ(outcome.status, call.status) << call.arguments << "\n" << outcome.text;
    EXPECT_NE(outcome.text.find(call.text), std::string::npos) << call.text << outcome.text;
    return outcome;
}

constexpr char kWorkedImage[] =
    "03 66 91 01 0D 55 04 74 61 67 2F 61 62 63 64 31\n"
    "32 33 34 52 26 2C 61 70 70 6C 69 63 61 74 69 6F\n"
    "6E 2F 76 6E 64 2E 6F 72 76 61 6E 65 2E 68 61 6E\n"
    "64 6F 66 66 2E 6E 64 65 66 6D 73 67 80 64 02 11\n"
    "22 33 44 55 00 01 02 03 04 05 06 07 08 09 0A 0B\n"
    "0C 0D 0E 0F 10 11 12 13 14 15 16 17 18 19 1A 1B\n"
    "1C 1D 1E 1F 00 00 08 00 FE\n";
constexpr char kScript[] = "run --seed 1 --script -";
constexpr char kBus[] = "run --seed 1 --bus --script -";
constexpr char kChecked[] = "run --seed 1 --check --script -";
constexpr char kWorkedFields[] =
    "image build --url tag/abcd1234 --mac 021122334455 --model 00000800 --number "
    "000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F";

TEST(Image, IsBuiltFromItsFieldsByteForByte) {
    EXPECT_EQ(Lab(kWorkedFields).text, kWorkedImage);
    EXPECT_EQ(Lab(std::string(kWorkedFields) + " --format raw").text,
              lab::FromHex(kWorkedImage, "worked"));
    EXPECT_EQ(lab::FromHex(Lab("image build --pc-type 8").text, "config").substr(7, 50),
              "example.org/tap/sofa-handoff/start?via=keyboardtag");
}

// The lab's reader is independent of the library's: they must agree on every image.
TEST(Image, BothReadersAgreeOnEveryChangedByteAndEveryLength) {
    const std::string good = lab::FromHex(kWorkedImage, "worked");
    const auto compare = [](const std::string& image) {
        const lab::ImageNotes notes = lab::AnnotateImage(image);
        EXPECT_EQ(lab::AskLibrary(image).accepted, !notes.fault)
            << lab::ToHex(image) << " " << (notes.fault ? notes.fault->check : "");
        std::size_t covered = 0;
        for (const lab::ImageField& field : notes.fields) {
            EXPECT_EQ(field.offset, covered);
            covered += field.size;
        }
        EXPECT_EQ(covered, image.size());
    };
    for (std::size_t offset = 0; offset < good.size(); ++offset) {
        for (const int value : {0, 1, 2, 3, 43, 45, 0x52, 0x7F, 0x80, 0x91, 0xFD, 0xFF}) {
            std::string image = good;
            image[offset] = static_cast<char>(value);
            compare(image);
        }
        std::string cut = good.substr(0, offset);
        compare(cut);
        if (offset >= 3) {
            cut[1] = static_cast<char>(offset - 3);  // the length fits: later checks are reached
            compare(cut);
        }
    }
    compare(good + std::string(151, '\0'));
}

TEST(Script, CommandsKeepTheirPrefixesAndTheirNesting) {
    const lab::Script script = lab::ParseScript(
        "f", "repeat 2\n  repeat 3\n at 10 on i2c,fanli in 5 tap\n end\nend\nfault write#3=never");
    const lab::Command& tap = script.commands.at(0).body.at(0).body.at(0);
    EXPECT_TRUE(tap.line == 3 && tap.at == 10 && tap.in == 5);
    EXPECT_EQ(tap.only, (std::vector<std::string>{"i2c", "fanli"}));
    EXPECT_EQ(script.commands.at(1).argument, "write#3=never");
}

// Both scripts succeed on every route without a violation, and the same seed gives the same
// objects.
TEST(Run, ASeedRepeatsARunAndEveryObjectHasItsThread) {
    const std::set<std::string> threads{"host", "interrupt", "defer", "keyboard", "number", "ble"};
    for (const char* route : {"i2c", "i2c --chip fanli", "usb", "hid", "ble"}) {
        for (const char* script : {"bad-day", "day-at-a-desk"}) {
            const std::string call =
                std::string("run --seed 11 --check --json --script lab/scripts/") + script +
                ".lab --route " + route;
            const Outcome run = Lab(call);
            EXPECT_EQ(run.status, 0) << call << "\n" << run.text.substr(0, 2000);
            EXPECT_EQ(run.text, Lab(call).text) << call;
            std::istringstream lines(run.text);
            std::map<std::string, double> last;
            std::set<std::string> kinds;
            for (std::string line; std::getline(lines, line);) {
                const auto object = nlohmann::json::parse(line);
                const std::string thread = object["thread"];
                EXPECT_EQ(threads.count(thread), 1U) << line;
                EXPECT_GE(object["t"].get<double>(), last[thread]) << line;
                last[thread] = object["t"];
                kinds.insert(object["kind"]);
            }
            for (const char* kind : {"event", "log", "bus", "phone", "result", "check"}) {
                EXPECT_EQ(kinds.count(kind), 1U) << call << " " << kind;
            }
        }
    }
}

// Whatever the order in which the routes are given.
TEST(Run, APcWithSeveralRoutesStartsAllOfThemAndIsPlayedWhole) {
    const struct {
        const char* pc;
        const char* operations;
        const char* meaning;  // of a frame to the device that DeviceInit opens
    } cases[] = {
        {"ble,hid", "Init Create DeviceInit SetMcuKbConnectStatus BtConnect WriteMessage ",
         "report, page 1"},
        {"ble,i2c chip=fanli", "Init Create DeviceInit BtConnect WriteMessage ",
         "interrupt status 2"},
        {"usb,ble,i2c", "Init Create DeviceInit BtConnect WriteMessage ",
         "register 908 (field detection mode)"},
    };
    for (const auto& [pc, operations, meaning] : cases) {
        const std::string script = std::string("pc route=") + pc + "\ntap 500\ntap 500 ble";
        const Outcome run = Lab(std::string(kChecked) + " --json", script);
        EXPECT_EQ(run.status, 0) << pc << run.text.substr(0, 2000);
        std::istringstream lines(run.text);
        std::string seen;
        std::set<int> routes;
        for (std::string line; std::getline(lines, line);) {
            const auto object = nlohmann::json::parse(line);
            if (object["kind"] == "result" && seen.find("WriteMessage") == std::string::npos) {
                seen += object["operation"].get<std::string>() + " ";
            } else if (object["kind"] == "event") {
                routes.insert(object["route"].get<int>());
            }
        }
        EXPECT_EQ(seen, operations) << pc;
        EXPECT_EQ(routes.size(), 2U) << pc;
        EXPECT_NE(run.text.find(meaning), std::string::npos) << pc;
    }
}

// The listener is slow, so that the leave of the phone before it is reported while it stays.
TEST(Run, ATapWaitsForTheEndOfItsOwnVisit) {
    const std::string text =
        Lab(kScript, "pc route=ble\nlistener on pause=400\nin 0 tap 100\nwait 120\ntap 300\nstop")
            .text;
    EXPECT_LT(text.rfind("EVENT 1"), text.find("> stop")) << text;
}

TEST(Lab, ExitStatusAndOutputSayWhatHappened) {
    EXPECT_EQ(lab::Narrow(L"caf\u00E9\n"), "caf\\u00E9\n");
    RunShell(
        "mkdir -p twice/config; printf '[PC_URI]\norvane_uri=https://a\nvelmo_uri=b\n' "
        "> twice/config/NfcUri.ini");
    const Call calls[] = {
        {"image build --url " + std::string(162, 'u'), "", 0, ""},
        {"image show -", kWorkedImage, 0, ""},
        {"image show -", "0x03 0x66 0x91", 1, "refused: offset 1: TLV length is 102"},
        {"run --seed 18446744073709551615 --chip silent", "", 1, "failed."},
        {kScript, "%1048576s", 0, "Everything worked"},
        {kScript, "write url=a\\0b\\033c", 0, "> write url=a\\x00b\\x1Bc\n"},
        {"run --check --seed 1 --chip fanli", "", 0,
         "judged: 1 visit, 1 of them with their times, 1"},
        {kChecked, "write url=%0163d", 1, "input:1: write url=0000"},
        {kChecked, "write url=%0163d\nexpect result FAIL", 0, "No violation"},
        {kChecked, "fault write#1+=refuse:1117\nupdate\nexpect result FAIL", 0, "No violation"},
        {"run --check --seed 1 --chip silent --json", "", 1,
         R"("line":0,"command":"the start of the run","expected":"success)"},
        {kScript, "\\357\\273\\277tap 5", 0, "> tap 5\n"},
        {"image show -", std::string("\\357\\273\\277") + kWorkedImage, 0, "accepted: 105 bytes"},
        // A phone that nobody has brought, and a report of no known type.
        {kBus, "pc route=hid\nsend 050101082E026EE6\nexpect event 3 within 50\nsend 050101082E0700",
         0, "of an unknown type"},
        {kBus, "pc route=ble\nsend 2E026EE6\nexpect event 3 within 50\nsend 2E0700", 0,
         "of an unknown type"},
        // The fault is judged: the script says what happens at the device later.
        {kChecked, "pc route=ble\nin 20 tap 500\ndisconnect\nwrite", 1, "No violation"},
        {"run --config twice --pc-type 5 --seed 1", "", 1,
         "warning: twice/config/NfcUri.ini: [PC_URI] orvane_uri=https://a: begins with https://"},
        {"run --json --seed 1 --script -", "write url=a\\377\\nread-message", 0, R"("a\\xFF")"},
    };
    for (const Call& call : calls) {
        ExpectOutcome(call);
    }
}

TEST(Lab, AFailureIsOneLineOnStandardError) {
    RunShell("mkdir -p pipe/config long/config; mkfifo pipe/config/NfcUri.ini 2>&-");
    RunShell("truncate -s 1048577 long/config/NfcUri.ini");
    RunShell("mkdir -p swapped/config; printf '\\376\\377\\0[' > swapped/config/NfcUri.ini");
    const std::string kQuiet = std::string(kScript) + " > /dev/null";
    const std::string kLost = "standard output: cannot be written: ";
    const auto control = [](unsigned char byte) { return byte < 0x20; };
    const Call calls[] = {
        {"jump", "", 2, "A command is required (run, image, explain, completion): \"jump\""},
        {"image build --url u" + std::string(162, 'u'), "", 2, "--url: 163 bytes: at most 162 fit"},
        {"image build --url u -o no/x", "", 2, "-o no/x: cannot be created: No such file"},
        {"image build --url u -o lab", "", 2, "-o lab: is a directory"},
        {"image build --url u -o ''", "", 2, "-o \"\": a file name is needed"},
        {"image show -", "03 66\\n9g", 2, "input:2:2: 'g' is not"},
        {"image show -", "%1048577s", 2, "standard input: is longer than 1048576 bytes"},
        {"image show no-such-file", "", 2, "no-such-file: is not there"},
        {"--help > /dev/full", "", 1, kLost + "No space left on device"},
        {"run --seed 1 >&-", "", 1, kLost + "it is closed"},
        {"run --seed 1 --json > /dev/full", "", 1, kLost + "No space left on device"},
        // More than a pipe holds, so that some of it finds no reader. The status is that of `true`.
        {"run --seed 1 --json --script lab/scripts/bad-day.lab | true", "", 0,
         kLost + "Broken pipe"},
        {"run --seed 1 --route moon", "", 2, "--route: moon not in {"},
        {"run --seed", "", 2, "--seed: a value is missing"},
        {"run --seed 1 --seed 1", "", 2, "--seed: it is given more than once"},
        {"run --log=no", "", 2, "--log: it takes no value"},
        {"run --seed -1", "", 2, "--seed -1: a whole number from 0 to 18446744073709551615"},
        {"run --check", "", 2, "--check judges times of the scheduled clock: it needs --seed N"},
        {kChecked, "pc late=21", 2, "input:1: pc late=21: --check needs threads that are"},
        {"run --config /dev/zero", "", 2, "--config /dev/zero: is not a directory"},
        {"run --config pipe", "", 2, "pipe/config/NfcUri.ini: is not a regular file"},
        {"run --config long", "", 2, "long/config/NfcUri.ini: is longer than 1048576 bytes"},
        {"run --config swapped", "", 2, "swapped/config/NfcUri.ini: is UTF-16 in big-endian order"},
        {"run --seed 1 --report pipe/config/NfcUri.ini", "", 2,
         "NfcUri.ini: is not a regular file"},
        {"run --seed 1 --report x > x", "", 2, "--report x: is the file of standard output"},
        {"run --route usb --chip fanli", "", 2, "--chip fanli: not possible on the usb route"},
        {"run --fault write#1=late:0", "", 2,
         "--fault: \"write#1=late:0\": late:MS needs a number of milliseconds from 1 to "
         "4294967295"},
        {"run --fault write#3-2=never", "", 2, ": in \"3-2\" the second number is below the first"},
        {"run --fault write#1=never,", "", 2, "--fault: entry 2 is empty"},
        {"run --route ble --fault read#1", "", 2, "--fault: \"read#1\": the form on ble is CALL#N"},
        {"run --fault write#1=never,connect#1", "", 2,
         "--fault: \"connect#1\": a call of the Bluetooth client, and the PC has no ble route, "
         "only "
         "i2c"},
        {"run --fault write#3", "", 2, "\"write#3\": the form is KIND#WHICH=ACTION"},
        {"run --fault ' '", "", 2, "--fault \" \": a plan is needed, or none"},
        {"run --script lab", "", 2, "--script lab: is a directory"},
        {kScript, "a\\0\\033\\302\\233", 2, R"(input:1: unknown command "a\x00\x1B\xC2\x9B";)"},
        {kScript, "# only\\n\\n tap 5 # fine\\njump", 2,
         "input:4: unknown command \"jump\"; expected: tap"},
        {kScript, "wait soon", 2, "input:1: \"soon\" is not a whole number"},
        {kScript, "wait", 2, "input:1: the line ends too early; expected: wait MS"},
        {kScript, "wait 5 6", 2, "input:1: too much: \"6\""},
        {kScript, "tap 5 moon", 2, "input:1: unknown route \"moon\""},
        {kScript, "manager 2 tap", 2, "input:1: \"manager\" cannot come before \"tap\""},
        {kScript, "tap\\npc route=i2c", 2, "input:2: \"pc\" can only be the first"},
        {kScript, "renew 00FF", 2, "input:1: value \"00FF\": 2 bytes: 32 are needed"},
        {kScript, "write uri=x", 2, "input:1: unknown field \"uri=x\""},
        {kScript, "expect event 3 in 5", 2, "input:1: \"within\" is missing"},
        {kScript, "repeat 2\\ntap", 2, "input:1: \"repeat 2\" has no \"end\""},
        {kScript, "end", 2, "input:1: \"end\" without"},
        {kScript, "repeat 1\\n%.0s' $(seq 17) '", 2, "input:17: more than 16 \"repeat\"s"},
        {kScript, "tap\\nfault write#0=never", 2,
         "input:2: fault write#0=never: \"write#0=never\": \"0\" is not N,"},
        {kScript, "tap\\ntap 300 ble", 2,
         "input:2: tap 300 ble: the PC has no tag on the ble route"},
        {kScript, "chip-status 3", 2,
         "only the chips fanli and like-fanli have one, not fm11nt081"},
        {kScript, "send 05", 2, "input:1: send 05: the i2c route has no keyboard"},
        {kScript, "read-numbr", 2, "; did you mean \"read-number\"?"},
        {kScript, "\\npc route=hid chip=fanli", 2, "input:2: pc chip=fanli: the hid route has no"},
        {kScript, "pc route=usb,usb", 2, "input:1: pc route=usb,usb: a route is given twice"},
        {kQuiet, "expect event 3 within 50", 1, "input:1: expect event 3 within 50: none came"},
        {kQuiet, "update\\nexpect result FAIL", 1, "input:2: expect result FAIL: UpdateNfc"},
        {kQuiet, "stop\\nupdate", 2, "input:2: update: there is no manager"},
    };
    for (const Call& call : calls) {
        const Outcome outcome = ExpectOutcome(call);
        EXPECT_EQ(outcome.text.rfind("tagport-lab: ", 0), 0U) << outcome.text;
        EXPECT_TRUE(call.status != 2 ||
                    outcome.text.find(" --help)\n") + 9 == outcome.text.size() ||
                    call.input.rfind("stop", 0) == 0)
            << outcome.text;
        EXPECT_EQ(std::count_if(outcome.text.begin(), outcome.text.end(), control), 1);
    }
}

TEST(Lab, AFailedWriteLeavesTheOldFileAndNoOther) {
    for (const std::string call : {"image build --url u -o", "run --seed 1 --report"}) {
        RunShell("rm -rf out; mkdir out; echo old > out/tag");
        const Outcome run =
            RunShell("(trap '' XFSZ; ulimit -f 0; env --default-signal=XFSZ " LAB_PROGRAM " " +
                     call + " out/tag 2>&3 > /dev/null; echo $?); ls out; cat out/tag");
        EXPECT_EQ(run.text, "tagport-lab: " + call.substr(call.rfind(' ') + 1) +
                                " out/tag: cannot be written: File too large\n1\ntag\nold\n");
    }
}

TEST(Lab, ARunWithoutAConfigurationTakesTheInstalledOne) {
    const std::string elsewhere = "mkdir -p else; cd else; " LAB_PROGRAM " ";
    const Outcome run = RunShell(elsewhere + "run --seed 1 2>&3");
    EXPECT_EQ(run.status, 0) << run.text;
    EXPECT_EQ(run.text.rfind("The URIs are those of ", 0), 0U) << run.text;
    EXPECT_EQ(RunShell(elsewhere + "image build --pc-type 5 2>&3").text,
              "tagport-lab: ./config/NfcUri.ini: is not there; --config DIR names the directory "
              "that holds config/NfcUri.ini (see tagport-lab image build --help)\n");
}

// One table is the source of the parser and of --help; the manual has the same rows.
TEST(Lab, TheManualHasEveryRowOfTheHelp) {
    const std::string manual = RunShell("cat " LAB_MANUAL).text;
    const std::string help = Lab("run --help").text;
    for (const lab::HelpSection& section : lab::Grammar("run")) {
        EXPECT_FALSE(section.entries.empty());
        for (const lab::HelpEntry& entry : section.entries) {
            std::string form = entry.form;
            for (std::size_t at = 0; (at = form.find('|', at)) != std::string::npos; at += 2) {
                form.insert(at, 1, '\\');
            }
            EXPECT_NE(manual.find("\n| `" + form + "` | "), std::string::npos) << form;
            EXPECT_NE(help.find("\n  " + entry.form), std::string::npos) << entry.form;
        }
    }
}

// As bash splits the words of a line; a value after "=" is a word of its own.
TEST(Lab, BashCompletesEveryOptionOfTheHelpAndItsValues) {
    const auto completed = [](const std::string& words) {
        return RunShell("mkdir -p run; bash -c 'source <(" LAB_PROGRAM
                        " completion bash); compopt() { :; }; COMP_WORDS=(" LAB_PROGRAM " " +
                        words +
                        "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _tagport_lab; "
                        "echo \" ${COMPREPLY[*]} \"'")
            .text;
    };
    for (const std::string command : {"run", "explain", "image build", "image show"}) {
        const std::string help = Lab(command + " --help").text;
        EXPECT_NE(help.find("Examples:"), std::string::npos);
        const std::string words = completed(command + " --");
        for (std::size_t at = 0; (at = help.find("--", at)) != std::string::npos;) {
            const std::size_t end = help.find_first_not_of("abcdefghijklmnopqrstuvwxyz-", at);
            const std::string option = help.substr(at, end - at);
            at = end;
            EXPECT_NE(words.find(" " + option + " "), std::string::npos) << option << words;
        }
    }
    EXPECT_EQ(completed("r"), " run \n");
    EXPECT_EQ(completed("run --chip fanl"), " fanli \n");
    EXPECT_EQ(completed("run --route = us"), " usb \n");
    EXPECT_EQ(completed("run --config = ru"), " run \n");
}

TEST(Lab, ColoursNeedATerminalThatShowsThem) {
    if (RunShell("script -qec true /dev/null").status != 0) {
        GTEST_SKIP() << "there is no pseudo-terminal, or no program \"script\" that makes one";
    }
    for (const std::string environment : {"TERM=xterm", "TERM=dumb", "TERM=xterm NO_COLOR=1"}) {
        const Outcome run = RunShell("unset NO_COLOR; " + environment +
                                     " script -qec '" LAB_PROGRAM " run --seed 1' /dev/null");
        EXPECT_EQ(run.text.find('\033') != std::string::npos, environment == "TERM=xterm");
    }
}

}  // namespace
