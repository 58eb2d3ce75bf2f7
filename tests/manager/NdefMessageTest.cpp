// The message as a value: limits of its fields, arrays that are not there, and Init from
// config/NfcUri.ini with the files that people and editors leave there.
#include <gtest/gtest.h>
#include <tagport/NdefMessage.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>

#include "platform/hosted/Kernel.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/NoArray.h"

namespace {

using testing_support::LogRecorder;
using Texts = std::vector<std::string>;
namespace fs = std::filesystem;

// The fields one after the other; each byte of the MAC address is `mac`, of the number `number`.
std::string State(const std::string& url, char mac, char number, const std::string& model,
                  int type) {
    return url + std::string(6, mac) + std::string(32, number) + model + static_cast<char>(type);
}

std::string StateOf(NdefMessage message) {
    std::string url = "untouched";
    std::uint8_t mac[6] = {9}, number[32] = {9}, model[4] = {9}, type = 9;
    const int result = message.GetUrl(url) + message.GetMac(mac) + message.GetRandomNumber(number) +
                       message.GetModel(model) + message.GetPcType(type);
    return (result == 0 ? url : "failed") + std::string(mac, mac + 6) +
           std::string(number, number + 32) + std::string(model, model + 4) +
           static_cast<char>(type);
}

NdefMessage FilledMessage() {
    NdefMessage message;
    std::uint8_t number[32];
    std::fill_n(number, sizeof(number), std::uint8_t{2});
    message.SetUrl("old");
    message.SetMac({1, 1, 1, 1, 1, 1});
    message.SetRandomNumber(number);
    message.SetModel({3, 3, 3, 3});
    return message;
}

const std::string kFilledState = State("old", 1, 2, "\3\3\3\3", 0);

TEST(NdefMessage, StoresUrlsOf1To255BytesAndEveryPcType) {
    EXPECT_EQ(StateOf(NdefMessage()), State("", 0, 0, std::string(4, '\0'), 0));
    LogRecorder log;
    for (const auto& [size, result] : {std::pair{1, 0}, {255, 0}, {256, -1}, {0, -1}}) {
        NdefMessage message = FilledMessage();
        const std::string url(static_cast<std::size_t>(size), '\0');
        EXPECT_EQ(message.SetUrl(url) + message.SetPcType(255), result);
        EXPECT_EQ(StateOf(message), State(result == 0 ? url : "old", 1, 2, "\3\3\3\3", 255));
    }
    EXPECT_EQ(log.Texts(), Texts{});
}

TEST(NdefMessage, AnswersArraysThatAreNotThere) {
    LogRecorder log;
    NdefMessage message = FilledMessage();
    EXPECT_EQ(message.GetMac(NoArray<std::uint8_t, 6>()), -1);
    EXPECT_EQ(message.GetModel(NoArray<std::uint8_t, 4>()), -1);
    EXPECT_EQ(message.GetRandomNumber(NoArray<std::uint8_t, 32>()), -1);
    EXPECT_EQ(StateOf(message), kFilledState);
    EXPECT_EQ(message.SetMac(NoArray<const std::uint8_t, 6>()), -1);
    EXPECT_EQ(message.SetRandomNumber(NoArray<const std::uint8_t, 32>()), -1);
    EXPECT_EQ(message.SetModel(NoArray<const std::uint8_t, 4>()), -1);
    EXPECT_EQ(StateOf(message), State("old", 0, 0, std::string(4, '\0'), 0));
    Texts told = log.TakeUnannounced();
    told.erase(told.begin() + 2);  // one line for the number
    EXPECT_EQ(told, (Texts{"GetMac memcpy_s fail", "GetModel memcpy_s fail", "SetMac memcpy_s fail",
                           "SetRandomNumber memcpy_s fail", "SetModel memcpy_s fail"}));
}

constexpr char kFile[] = "config/NfcUri.ini";
std::string File(const std::string& orvane, const std::string& velmo) {
    return "[PC_URI]\norvane_uri=" + orvane + "\nvelmo_uri=" + velmo + "\n";
}
const std::string kGood = File("example.com/o", "example.com/v");
const std::string kLoose =
    "[pc_uri]\r\n ORVANE_URI = \"example.com/o\"\r\nvelmo_URI= example.com/v ";
const std::string kNothing = "NFC_ GetUriInfo fail";
const char kTooLong[] = "NFC - GetCurrentDirectoryW:buffer too small, need 261 characters.";
const std::string kBadUrl = "NdefMessage set information failed";

std::string Filled(const std::string& url, char type) {
    const auto number = static_cast<char>(type - '0');
    return State(url, 0, 0, {0, 0, number == 2 ? '\0' : number, 0}, number);
}

// All fields of a filled message behind an Init that leaves these error lines.
std::string Init(char type, const Texts& errors = {}) {
    LogRecorder log;
    NdefMessage message = FilledMessage();
    message.Init(type);
    EXPECT_EQ(log.TakeUnannounced(), errors);
    return StateOf(message);
}

// Test programs of several builds may run at once.
const fs::path kRoot =
    fs::temp_directory_path() / ("uri-config-" + std::to_string(std::random_device()()));

struct UriConfig : testing::Test {
    UriConfig() {
        fs::create_directories(kRoot / "config");
        fs::current_path(kRoot);
    }
    ~UriConfig() override { fs::remove_all(kRoot); }
};

TEST_F(UriConfig, FillsTheMessageByType) {
    std::string wide = "\xFF\xFE";
    std::for_each(kGood.begin(), kGood.end(), [&](char each) { wide += {each, '\0'}; });
    for (const std::string& text : {kGood, wide, "\xEF\xBB\xBF" + kGood, kLoose}) {
        SCOPED_TRACE(text);
        std::ofstream(kFile) << (text);
        EXPECT_EQ(Init('2'), Filled(" ", '2'));
        EXPECT_EQ(Init('5'), Filled("example.com/o", '5'));
        EXPECT_EQ(Init('8'), Filled("example.com/v", '8'));
        EXPECT_EQ(Init('3', {kBadUrl}), State("old", 0, 2, "\3\3\3\3", 0));
    }
}

TEST_F(UriConfig, ChangesNothingWithoutBothValues) {
    EXPECT_EQ(Init('2', {kNothing}), kFilledState);
    for (const std::string& text :
         {std::string(), std::string("[PC_URI]\norvane_uri=a\n"), File("", "b"), File("a", ""),
          "[OTHER]" + File("a", "b").substr(8)}) {
        SCOPED_TRACE(text);
        std::ofstream(kFile) << (text);
        EXPECT_EQ(Init('5', {kNothing}), kFilledState);
    }
    EXPECT_TRUE(fs::remove(kFile) && fs::create_directory(kFile));
    EXPECT_EQ(Init('8', {kNothing}), kFilledState);
    hosted::SetCurrentDirectoryForTests(L"C:\\" + std::wstring(257, L'd'));
    EXPECT_EQ(Init('5', {kTooLong, kNothing}), kFilledState);
    hosted::SetCallHook([](hosted::Call, hosted::ThreadId) { return ERROR_ACCESS_DENIED; });
    EXPECT_EQ(Init('5', {"NFC - GetCurrentDirectoryW failed (5).", kNothing}), kFilledState);
    hosted::SetCallHook({});
    hosted::SetCurrentDirectoryForTests(L"");
}

TEST_F(UriConfig, CutsAndRefusesLongValues) {
    for (const std::size_t size : {254U, 255U, 5000U}) {
        std::ofstream(kFile) << File(std::string(size, 'a'), "b");
        EXPECT_EQ(Init('5'), Filled(std::string(254, 'a'), '5')) << size;
    }
    // 200 characters of two bytes each: whole in the file's buffer, too long as bytes.
    std::string twoByte;
    while (twoByte.size() < 400) {
        twoByte += "\xC3\xA9";
    }
    std::ofstream(kFile) << File(twoByte, twoByte.substr(0, 100));
    EXPECT_EQ(Init('8'), Filled(twoByte.substr(0, 100), '8'));
    EXPECT_EQ(Init('5', {kBadUrl}), State("old", 0, 2, "\3\3\3\3", 0));
}

}  // namespace
