// Tests that are made of Win32 calls alone: events, the last error, configuration files
// and code pages.
#include <fstream>

#include "tests/platform/EmulationFixture.h"

namespace {

using namespace emulation_test;

TEST(Events, ReleaseAllOrExactlyOneEvenWhenResetAtOnce) {
    for (const bool manual : {true, false}) {
        OnBothClocks([manual] {
            const HANDLE event = CreateEventW(nullptr, manual ? TRUE : FALSE, FALSE, nullptr);
            EXPECT_EQ(WaitForSingleObject(event, 1), WAIT_TIMEOUT);
            const auto wait = [event] { WaitForSingleObject(event, INFINITE); };
            const std::vector<HANDLE> threads = {StartThread(wait), StartThread(wait)};
            AwaitEventWaiters(2);
            SetEvent(event);
            ResetEvent(event);  // those that were released stay released
            if (!manual) {
                SetEvent(event);  // releases the other thread
            }
            JoinThreads(threads);
            EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
            SetEvent(event);  // nobody waits: it stays set
            EXPECT_EQ(WaitForSingleObject(event, 5), WAIT_OBJECT_0);
            EXPECT_EQ(WaitForSingleObject(event, 1), manual ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
            CloseHandle(event);
        });
    }
}

TEST(LastError, IsPerThreadAndKeptBySuccess) {
    OnBothClocks([] {
        SetLastError(77);
        JoinThreads({StartThread([] { EXPECT_EQ(GetLastError(), 0U); })});
        EXPECT_EQ(GetLastError(), 77U);
    });
}

// The sizes of values, and the enumeration, are tested with the code that uses them.
TEST(IniFile, IsReadLineByLine) {
    const auto file = TemporaryPath();
    const std::string head = "[PC_URI]\n";
    const char* const missing = WineDiffers("has no error for a missing key") ? "?0" : "?2";
    const std::pair<std::string, std::string> cases[] = {
        {"[x]\rkey=a\r[pc_uri]\rKEY=b\r", "b"},
        {"\r\n [ Pc_Uri ] \r\n\t Key \t= v  w \t\r\n", "v  w"},
        {head + "\vkey\f=\fv\x1A\n", "v"},
        {head + "key=" + std::string("a\0b", 3), "a"},
        {head + "key=\" in  \"", " in  "},
        {head + "key='\"in\"'", "\"in\""},
        {head + "key='in\"", "'in\""},
        {head + "key=a=b;c", "a=b;c"},
        {head + "key=", ""},
        {head + ";key=a\nkey=1\nkey=2", "1"},
        {head + "key\nkey=1", WineDiffers("takes a line without '=' for a key") ? "?0" : "1"},
        {"key=0\n[PC_URI]\nother=1\n[x]\n[PC_URI]\nkey=2", missing},
        {"[x]\n[PC_URI\nkey=1\n[PC_URI]\nkey=2", "2"},
        {"\xEF\xBB\xBF" + head + "key=\xC3\xA9\xF0\x9F\x98\x80", "\xC3\xA9\xF0\x9F\x98\x80"},
        {head + "key=" + kUnmarked, UnmarkedAsUtf8()},
        {std::string(
             "\xFF\xFE[\0P\0C\0_\0U\0R\0I\0]\0\n\0k\0e\0y\0=\0\xE9\0\x3D\xD8\x00\xDE\x00\xDC", 36),
         "\xC3\xA9\xF0\x9F\x98\x80\xEF\xBF\xBD"}};
    for (const auto& [bytes, value] : cases) {
        std::ofstream(file, std::ios::binary) << bytes;
        EXPECT_EQ(ReadKey(file.wstring()), value) << bytes;
    }
    std::filesystem::remove(file);
    EXPECT_EQ(ReadKey(file.wstring()), "?2");
    EXPECT_EQ(ReadKey(file.parent_path().wstring()), "?5");
}

TEST(CurrentDirectory, HasALengthWithoutItsZeroAndNeedsASizeWithIt) {
    const DWORD size = GetCurrentDirectoryW(0, nullptr);
    std::wstring path(size, L'x');
    EXPECT_EQ(GetCurrentDirectoryW(size - 1, path.data()), size);
    EXPECT_EQ(GetCurrentDirectoryW(size, path.data()), size - 1);
    EXPECT_EQ(path.find(L'\0'), size - 1);
}

TEST(CodePage, NeedsABufferForTheTextAndItsZero) {
    char narrow[4] = "???";
    const auto convert = [&narrow](int size) {
        return WideCharToMultiByte(CP_THREAD_ACP, 0, L"abc", -1, narrow, size, nullptr, nullptr);
    };
    EXPECT_EQ(convert(0), 4);
    EXPECT_EQ(convert(3), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(convert(4), 4);
    EXPECT_STREQ(narrow, "abc");
}

}  // namespace
