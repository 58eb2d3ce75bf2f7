// Filling a message from config/NfcUri.ini, with the files that people and editors leave there.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "platform/hosted/Kernel.h"
#include "tests/message/MessageState.h"
#include "tests/support/LogRecorder.h"

namespace {

using testing_support::LogRecorder;
using Texts = std::vector<std::string>;

namespace fs = std::filesystem;

const std::string kGood = "[PC_URI]\norvane_uri=example.com/o\nvelmo_uri=example.com/v\n";

std::string Filled(const std::string& url, char type) {
    const char model = type == 2 ? '\0' : type;
    return State(url, 0, 0, {0, 0, model, 0}, type);
}

class UriConfig : public testing::Test {
  protected:
    UriConfig() {
        fs::create_directories(m_root / "config");
        fs::current_path(m_root);
    }
    ~UriConfig() override {
        fs::current_path(m_home);
        fs::remove_all(m_root);
    }

    static void Write(const std::string& text) {
        std::ofstream("config/NfcUri.ini", std::ios::binary) << text;
    }

    void ExpectNothingChanged() {
        for (const char type : {'2', '5', '8', '3'}) {
            LogRecorder log;
            m_message.Init(type);
            EXPECT_EQ(StateOf(m_message), kFilledState);
            EXPECT_EQ(log.TakeUnannounced(), Texts{"NFC_ GetUriInfo fail"});
        }
    }

    NdefMessage m_message = FilledMessage();

  private:
    const fs::path m_home = fs::current_path();
    // Test programs of several builds may run at once.
    const fs::path m_root =
        fs::temp_directory_path() / ("uri-config-" + std::to_string(std::random_device()()));
};

TEST_F(UriConfig, FillsTheMessageByType) {
    Write(kGood);
    LogRecorder log;
    m_message.Init('3');
    EXPECT_EQ(StateOf(m_message), State("old", 0, 2, "\3\3\3\3", 0));
    EXPECT_EQ(log.Texts(),
              (Texts{"NFC_ get confFile: NfcUri.ini", "NdefMessage set information failed"}));
    EXPECT_EQ(log.TakeUnannounced(), Texts{"NdefMessage set information failed"});
    m_message.Init('5');
    EXPECT_EQ(StateOf(m_message), Filled("example.com/o", 5));
    m_message.Init('8');
    EXPECT_EQ(StateOf(m_message), Filled("example.com/v", 8));
    m_message.Init('2');
    EXPECT_EQ(StateOf(m_message), Filled(" ", 2));
}

TEST_F(UriConfig, ChangesNothingWithoutBothValues) {
    ExpectNothingChanged();
    for (const char* text :
         {"", "[PC_URI]\norvane_uri=a\n", "[PC_URI]\nvelmo_uri=b\n",
          "[PC_URI]\norvane_uri=a\nvelmo_uri=\n", "[OTHER]\norvane_uri=a\nvelmo_uri=b\n"}) {
        SCOPED_TRACE(text);
        Write(text);
        ExpectNothingChanged();
    }
    fs::remove("config/NfcUri.ini");
    fs::create_directory("config/NfcUri.ini");
    ExpectNothingChanged();
}

TEST_F(UriConfig, TellsWhyThereIsNoDirectory) {
    Write(kGood);
    LogRecorder log;
    hosted::SetCurrentDirectoryForTests(L"C:\\" + std::wstring(257, L'd'));
    m_message.Init('5');
    EXPECT_EQ(log.TakeUnannounced(),
              (Texts{"NFC - GetCurrentDirectoryW:buffer too small, need 261 characters.",
                     "NFC_ GetUriInfo fail"}));
    hosted::SetCurrentDirectoryForTests(L"");
    hosted::SetCallHook([](hosted::Call, hosted::ThreadId) { return ERROR_ACCESS_DENIED; });
    m_message.Init('5');
    EXPECT_EQ(log.TakeUnannounced(),
              (Texts{"NFC - GetCurrentDirectoryW failed (5).", "NFC_ GetUriInfo fail"}));
    EXPECT_EQ(StateOf(m_message), kFilledState);
    hosted::SetCallHook(nullptr);
}

TEST_F(UriConfig, ReadsTheFilesThatEditorsWrite) {
    std::string wide = "\xFF\xFE";
    for (const char each : kGood) {
        wide += {each, '\0'};
    }
    std::string large;
    while (large.size() < 10U * 1024 * 1024) {
        large += "; nothing to see in this line\r\n";
    }
    for (const std::string& text :
         {kGood.substr(0, kGood.size() - 1), wide, "\xEF\xBB\xBF" + kGood, large + kGood,
          std::string(
              "[pc_uri]\r\n ORVANE_URI = \"example.com/o\"\r\nvelmo_URI= example.com/v ")}) {
        SCOPED_TRACE(text.substr(0, 40));
        Write(text);
        LogRecorder log;
        m_message.Init('8');
        EXPECT_EQ(StateOf(m_message), Filled("example.com/v", 8));
        m_message.Init('5');
        EXPECT_EQ(StateOf(m_message), Filled("example.com/o", 5));
    }
}

TEST_F(UriConfig, CutsAndRefusesLongValues) {
    for (const std::size_t size : {254U, 255U, 300U, 5000U}) {
        SCOPED_TRACE(size);
        Write("[PC_URI]\norvane_uri=" + std::string(size, 'a') + "\nvelmo_uri=b\n");
        m_message.Init('5');
        EXPECT_EQ(StateOf(m_message), Filled(std::string(254, 'a'), 5));
    }
    // 200 characters of two bytes each: whole in the file's buffer, too long as bytes.
    std::string twoByte;
    while (twoByte.size() < 400) {
        twoByte += "\xC3\xA9";
    }
    Write("[PC_URI]\norvane_uri=" + twoByte + "\nvelmo_uri=" + twoByte.substr(0, 100) + "\n");
    LogRecorder log;
    m_message.Init('8');
    m_message.Init('5');
    EXPECT_EQ(StateOf(m_message), Filled(twoByte.substr(0, 100), 8));
    EXPECT_EQ(log.TakeUnannounced(), Texts{"NdefMessage set information failed"});
}

}  // namespace
