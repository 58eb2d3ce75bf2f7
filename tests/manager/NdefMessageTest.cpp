// The message as a value: limits of its fields, null references, and Init from
// config/NfcUri.ini with the files that people and editors leave there.
#include <gtest/gtest.h>
#include <tagport/NdefMessage.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "platform/emulation/Kernel.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/NoArray.h"

namespace {

using testing_support::LogRecorder;
using testing_support::Texts;
namespace fs = std::filesystem;

const std::string kNoMac(6, '\0'), kNoNumber(32, '\0'), kNoModel(4, '\0');

struct Fields {
    std::string url, mac, number, model;
    int pcType;
    Texts All() const { return {url, mac, number, model, std::to_string(pcType)}; }
};
const Fields kOld{"old", std::string(6, 1), std::string(32, 2), std::string(4, 3), 4};

template <std::size_t Size>
std::string Text(const std::uint8_t (&bytes)[Size]) {
    return std::string(bytes, bytes + Size);
}

// A message with the fields of kOld.
NdefMessage FilledMessage() {
    NdefMessage message;
    const auto& number = reinterpret_cast<const std::uint8_t(&)[32]>(*kOld.number.data());
    EXPECT_EQ(message.SetUrl(kOld.url), 0);
    EXPECT_EQ(message.SetMac({1, 1, 1, 1, 1, 1}), 0);
    EXPECT_EQ(message.SetRandomNumber(number), 0);
    EXPECT_EQ(message.SetModel({3, 3, 3, 3}), 0);
    EXPECT_EQ(message.SetPcType(4), 0);
    return message;
}

void ExpectFields(NdefMessage message, const Fields& expected) {
    std::string url;
    std::uint8_t mac[6], number[32], model[4], type = 9;
    EXPECT_EQ(message.GetUrl(url), 0);
    EXPECT_EQ(message.GetMac(mac), 0);
    EXPECT_EQ(message.GetRandomNumber(number), 0);
    EXPECT_EQ(message.GetModel(model), 0);
    EXPECT_EQ(message.GetPcType(type), 0);
    EXPECT_EQ((Fields{url, Text(mac), Text(number), Text(model), type}.All()), expected.All());
}

TEST(NdefMessage, StoresUrlsOf1To255Bytes) {
    ExpectFields(NdefMessage(), {"", kNoMac, kNoNumber, kNoModel, 0});
    LogRecorder log;
    for (const std::size_t size : {0U, 1U, 255U, 256U}) {
        const bool fits = size >= 1 && size <= 255;
        NdefMessage message = FilledMessage();
        Fields expected = kOld;
        expected.url = fits ? std::string(size, '\0') : "old";
        EXPECT_EQ(message.SetUrl(std::string(size, '\0')), fits ? 0 : -1);
        ExpectFields(message, expected);
    }
    EXPECT_EQ(log.TextsSoFar(), Texts{});
}

TEST(NdefMessage, RefusesNullReferences) {
    LogRecorder log;
    NdefMessage message = FilledMessage();
    EXPECT_EQ(message.GetMac(NoArray<std::uint8_t, 6>()), -1);
    EXPECT_EQ(message.GetModel(NoArray<std::uint8_t, 4>()), -1);
    EXPECT_EQ(message.GetRandomNumber(NoArray<std::uint8_t, 32>()), -1);
    ExpectFields(message, kOld);
    EXPECT_EQ(message.SetMac(NoArray<const std::uint8_t, 6>()), -1);
    EXPECT_EQ(message.SetRandomNumber(NoArray<const std::uint8_t, 32>()), -1);
    EXPECT_EQ(message.SetModel(NoArray<const std::uint8_t, 4>()), -1);
    ExpectFields(message, {"old", kNoMac, kNoNumber, kNoModel, 4});
    EXPECT_EQ(
        log.TakeUnannounced(),
        (Texts{"GetMac memcpy_s fail", "GetModel memcpy_s fail", "GetRandomNumber memcpy_s fail",
               "SetMac memcpy_s fail", "SetRandomNumber memcpy_s fail", "SetModel memcpy_s fail"}));
}

std::string File(const std::string& orvane, const std::string& velmo) {
    return "[PC_URI]\norvane_uri=" + orvane + "\nvelmo_uri=" + velmo + "\n";
}
const std::string kGood = File("example.com/o", "example.com/v");
const std::string kLoose =
    "[pc_uri]\r\n ORVANE_URI = \"example.com/o\"\r\nvelmo_URI= example.com/v ";

// Runs Init on a filled message, which logs these errors.
void ExpectInit(char type, const Fields& fields, const Texts& errors = {}) {
    LogRecorder log;
    NdefMessage message = FilledMessage();
    message.Init(type);
    const bool isFileReached =
        errors.empty() || errors[0].find("GetCurrentDirectoryW") == std::string::npos;
    EXPECT_EQ(log.Has("NFC_ get confFile: NfcUri.ini"), isFileReached);
    EXPECT_EQ(log.TakeUnannounced(), errors);
    ExpectFields(message, fields);
}

Fields FilledBy(const std::string& url, int pcType) {
    const char modelByte = pcType == 2 ? '\0' : static_cast<char>(pcType);
    return {url, kNoMac, kNoNumber, {0, 0, modelByte, 0}, pcType};
}

const Fields kOnlyMacCleared{kOld.url, kNoMac, kOld.number, kOld.model, kOld.pcType};
const Texts kBadUrl{"NdefMessage set information failed"};
const Texts kNoUris{"NFC_ GetUriInfo fail"};
constexpr char kFile[] = "config/NfcUri.ini";

// Test programs of several builds may run at once.
const fs::path kRoot =
    fs::temp_directory_path() / ("uri-config-" + std::to_string(std::random_device()()));

struct UriConfig : testing::Test {
    void SetUp() override {
        fs::create_directories(kRoot / "config");
        fs::current_path(kRoot);
    }
    void TearDown() override { fs::remove_all(kRoot); }
};

TEST_F(UriConfig, FillsTheMessageByType) {
    for (const std::string& text : {kGood, kLoose}) {
        SCOPED_TRACE(text);
        std::ofstream(kFile) << text;
        ExpectInit('2', FilledBy(" ", 2));
        ExpectInit('5', FilledBy("example.com/o", 5));
        ExpectInit('8', FilledBy("example.com/v", 8));
        ExpectInit('3', kOnlyMacCleared, kBadUrl);
    }
}

TEST_F(UriConfig, ChangesNothingWithoutBothValues) {
    for (const std::string& text :
         {std::string(), std::string("[PC_URI]\norvane_uri=a\n"), File("", "b"), File("a", ""),
          "[OTHER]" + File("a", "b").substr(8)}) {
        SCOPED_TRACE(text);
        std::ofstream(kFile) << text;
        ExpectInit('5', kOld, kNoUris);
    }
    ASSERT_TRUE(fs::remove(kFile));
    ExpectInit('8', kOld, kNoUris);
}

TEST_F(UriConfig, ChangesNothingWithoutACurrentDirectory) {
    std::ofstream(kFile) << kGood;
    emulation::SetCurrentDirectoryForTests(L"C:\\" + std::wstring(257, L'd'));
    const std::string call = "NFC - GetCurrentDirectoryW";
    ExpectInit('5', kOld, {call + ":buffer too small, need 261 characters.", kNoUris[0]});
    emulation::SetCallHook(
        [](emulation::Call, emulation::ThreadId) { return ERROR_ACCESS_DENIED; });
    ExpectInit('5', kOld, {call + " failed (5).", kNoUris[0]});
    emulation::SetCallHook({});
    emulation::SetCurrentDirectoryForTests(L"");
}

TEST_F(UriConfig, CutsAndRefusesLongValues) {
    // 200 characters of two bytes each: whole in the file's buffer, too long as bytes.
    std::string twoByte;
    while (twoByte.size() < 400) {
        twoByte += "\xC3\xA9";
    }
    std::ofstream(kFile) << File(twoByte, std::string(5000, 'b'));
    ExpectInit('5', kOnlyMacCleared, kBadUrl);
    ExpectInit('8', FilledBy(std::string(254, 'b'), 8));
    const std::string longest = twoByte.substr(0, 254) + "b";
    std::ofstream(kFile) << File(longest, "v");
    ExpectInit('5', FilledBy(longest, 5));
}

}  // namespace
