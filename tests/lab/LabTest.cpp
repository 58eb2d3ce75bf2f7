// tagport-lab as a person calls it: what it prints and how it ends. The script's parser and the
// image's annotator are asked directly.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "lab/Failure.h"
#include "lab/Hex.h"
#include "lab/ImageCommand.h"
#include "lab/ImageNotes.h"
#include "lab/Script.h"

namespace {

struct Outcome {
    int status = -1;
    std::string text;  // both streams
};

Outcome Lab(const std::string& arguments, const std::string& input = {}) {
    const std::string command = "cd " LAB_TREE " && printf '" + input + "' | timeout 60 " +
                                LAB_PROGRAM " " + arguments + " 2>&1";
    Outcome outcome;
    std::FILE* pipe = popen(command.c_str(), "r");
    for (int byte = 0; (byte = std::fgetc(pipe)) != EOF;) {
        outcome.text += static_cast<char>(byte);
    }
    outcome.status = WEXITSTATUS(pclose(pipe));
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

// The lab's reader and the library's were written apart: on no image may they disagree.
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

TEST(Script, WrongLinesAreNamedWithWhatWouldBeRight) {
    std::string nested;  // deep enough to end the stack of a reader that has no bound
    for (int i = 0; i < 100'000; ++i) {
        nested += "repeat 1\n";
    }
    const std::map<std::string, std::string> cases{
        {"# only\n\n tap 5 # fine\njump\n", "f:4: unknown word \"jump\": tap, enter"},
        {"wait soon", "f:1: \"soon\" is not a whole number"},
        {"wait", "f:1: the line ends too early: wait MS"},
        {"tap 5 6", "f:1: too much: \"6\""},
        {"in 5 renew", "f:1: \"in\" cannot stand in front of \"renew\""},
        {"on moon tap", "f:1: unknown route or chip \"moon\""},
        {"renew 00FF", "f:1: value \"00FF\": 2 bytes: 32 are needed"},
        {"write uri=x", "f:1: unknown field \"uri=x\""},
        {"expect event 3 in 5", "f:1: \"within\" is missing"},
        {"repeat 2\ntap", "f:1: \"repeat 2\" has no \"end\""},
        {"end", "f:1: \"end\" without"},
        {nested, "f:17: more than 16 \"repeat\"s"},
    };
    for (const auto& [text, expected] : cases) {
        try {
            lab::ParseScript("f", text);
            ADD_FAILURE() << "taken: " << text;
        } catch (const lab::WrongCall& problem) {
            EXPECT_EQ(std::string(problem.what()).rfind(expected, 0), 0U) << problem.what();
        }
    }
    const lab::Script script = lab::ParseScript(
        "f", "repeat 2\n  repeat 3\n at 10 on i2c,fanli in 5 tap\n end\nend\nfault write#3=never");
    const lab::Command& tap = script.commands.at(0).body.at(0).body.at(0);
    EXPECT_TRUE(tap.line == 3 && tap.at == 10 && tap.in == 5);
    EXPECT_EQ(tap.only, (std::vector<std::string>{"i2c", "fanli"}));
    EXPECT_EQ(script.commands.at(1).argument, "write#3=never");
}

// Every route plays the worst day and ends well; the same seed gives the same objects.
TEST(Run, ASeedRepeatsARunAndEveryObjectHasItsThread) {
    const std::set<std::string> threads{"host", "interrupt", "defer", "keyboard", "number", "ble"};
    for (const char* route : {"i2c", "i2c --chip fanli", "usb", "hid", "ble"}) {
        for (const char* script : {"bad-day", "day-at-a-desk"}) {
            const std::string call = std::string("run --seed 11 --json --script lab/scripts/") +
                                     script + ".lab --route " + route;
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
            for (const char* kind : {"event", "log", "bus", "phone", "result"}) {
                EXPECT_EQ(kinds.count(kind), 1U) << call << " " << kind;
            }
        }
    }
}

TEST(Lab, ExitStatusAndTextSayWhatHappened) {
    const std::string uri(162, 'u');
    const struct {
        std::string arguments;
        std::string input;
        int status;
        std::string text;  // stands in what is printed
    } calls[] = {
        {"", "", 2, ""},
        {"image build --url " + uri, "", 0, ""},
        {"image build --url u" + uri, "", 2, "163 bytes: at most 162 fit"},
        {"image build --url u --mac 0211", "", 2, "--mac \"0211\": 2 bytes: 6 are needed"},
        {"image build --url u --pc-type 5", "", 2, ""},
        {"image show -", kWorkedImage, 0, ""},
        {"image show -", "0x03 0x66 0x91", 1, "refused: offset 1: TLV length is 102"},
        {"image show -", "03 66\\n9g", 2, "standard input:2:2: 'g' is not"},
        {"image show no-such-file", "", 2, "no-such-file: cannot be read"},
        {"run --seed 1", "", 0, ""},
        {"run --seed 1 --chip silent", "", 1, ""},
        {"run --seed 1 --route moon", "", 2, ""},
        {"run --seed 1 --config lab", "", 1, "lab/config/NfcUri.ini: is not there"},
        {kScript, "expect event 3 within 50", 1, "input:1: expect event 3 within 50: none came"},
        {kScript, "update\\nexpect result FAIL", 1, "input:2: expect result FAIL: UpdateNfc"},
        {kScript, "tap\\nfault write#0=never", 2, "input:2: fault "},
        {kScript, "stop\\nupdate", 2, "input:2: update: there is no manager"},
    };
    for (const auto& call : calls) {
        const Outcome outcome = Lab(call.arguments, call.input);
        EXPECT_EQ(outcome.status, call.status) << call.arguments << "\n" << outcome.text;
        EXPECT_NE(outcome.text.find(call.text), std::string::npos)
            << "not \"" << call.text << "\", but: " << outcome.text;
    }
}

}  // namespace
