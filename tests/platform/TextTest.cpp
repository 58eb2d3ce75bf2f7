// Configuration files and the current directory. The sizes of values and texts, and the
// enumeration, are tested with the code that uses them.
#include <sys/stat.h>
#include <unistd.h>

#include <cwchar>
#include <filesystem>
#include <fstream>

#include "tests/platform/HostedFixture.h"

namespace {

constexpr DWORD kSize = 255;

std::filesystem::path TemporaryPath() {
    return std::filesystem::temp_directory_path() / ("tagport-ini-" + std::to_string(getpid()));
}

/// The key's value as UTF-8, or the default "?".
std::string ReadKey(const std::wstring& path) {
    WCHAR buffer[kSize] = {};
    SetLastError(0);
    GetPrivateProfileStringW(L"PC_URI", L"key", L"?", buffer, kSize, path.c_str());
    char narrow[kSize * 4] = {};
    WideCharToMultiByte(CP_THREAD_ACP, 0, buffer, -1, narrow, sizeof narrow, nullptr, nullptr);
    return narrow;
}

TEST(IniFile, IsReadLineByLineAsOnWindows) {
    const auto file = TemporaryPath();
    const std::string head = "[PC_URI]\n";
    const std::pair<std::string, std::string> cases[] = {
        {"[x]\rkey=a\r[pc_uri]\rKEY=b\r", "b"},
        {"\r\n [ Pc_Uri ] \r\n\t Key \t= v  w \t\r\n", "v  w"},
        {head + "key=\" in  \"", " in  "},
        {head + "key='\"in\"'", "\"in\""},
        {head + "key='in\"", "'in\""},
        {head + "key=", ""},
        {head + "key=a=b;c", "a=b;c"},
        {head + ";key=a\nkey=b", "b"},
        {head + "key=1\nkey=2", "1"},
        {head + "key\nkey=2", "2"},
        {"key=0\n" + head + "other=1", "?"},
        {"[PC_URI]\nother=1\n[x]\n[PC_URI]\nkey=2", "?"},
        {"[x]\n[PC_URI\nkey=1\n[PC_URI]\nkey=2", "2"},
        {"\xEF\xBB\xBF" + head + "key=\xC3\xA9\xF0\x9F\x98\x80", "\xC3\xA9\xF0\x9F\x98\x80"},
        {head + "key=\xC3\xA9\xFF\xC0\x80x", "\xC3\xA9\xEF\xBF\xBD\xEF\xBF\xBDx"},
        {std::string("\xFF\xFE[\0P\0C\0_\0U\0R\0I\0]\0\n\0k\0e\0y\0=\0\xE9\0\x3D\xD8\x00\xDE", 34),
         "\xC3\xA9\xF0\x9F\x98\x80"},
        {"", "?"}};
    for (const auto& [bytes, value] : cases) {
        std::ofstream(file, std::ios::binary) << bytes;
        EXPECT_EQ(ReadKey(file.wstring()), value) << bytes;
    }
    std::filesystem::remove(file);
    EXPECT_EQ(ReadKey(file.wstring()), "?");
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(ReadKey(file.parent_path().wstring()), "?");
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
}

TEST(IniFile, IsARegularFileOfAtMostOneMebibyte) {
    constexpr std::uintmax_t kMostBytes = 1024 * 1024;
    const auto file = TemporaryPath();
    std::ofstream(file) << "[PC_URI]\nkey=v\n;";
    std::filesystem::resize_file(file, kMostBytes);
    EXPECT_EQ(ReadKey(file.wstring()), "v");
    std::filesystem::resize_file(file, kMostBytes + 1);
    EXPECT_EQ(ReadKey(file.wstring()), "?");
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    std::filesystem::remove(file);
    ASSERT_EQ(mkfifo(file.c_str(), S_IRUSR), 0);  // an open that waits for a writer would hang
    for (const std::wstring& special : {file.wstring(), std::wstring(L"/dev/zero")}) {
        EXPECT_EQ(ReadKey(special), "?");
        EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    }
    std::filesystem::remove(file);
}

// A wide text cannot hold the first three names as they are; the third is the UTF-8 form of the
// value that stands for a byte.
TEST(CurrentDirectory, LeadsToItsFilesWhateverBytesItsNameHas) {
    const auto base = TemporaryPath();
    for (const char* const name : {"a\\b", "\xFF\xC3\xA9\xC3", "\xED\xB3\xBF", "\xC3\xA9"}) {
        const auto directory = base / name;
        std::filesystem::create_directories(directory / "config");
        std::ofstream(directory / "config" / "x.ini") << "[PC_URI]\nkey=v";
        const auto readConfig = [&] {
            EXPECT_EQ(chdir(directory.c_str()), 0);
            for (const std::wstring& chosen : {std::wstring(), hosted::WidePath(directory)}) {
                hosted::SetCurrentDirectoryForTests(chosen);
                WCHAR current[260] = {};
                const DWORD length = GetCurrentDirectoryW(260, current);
                EXPECT_EQ(length, std::wcslen(current));
                EXPECT_EQ(ReadKey(std::wstring(current) + L"\\config\\x.ini"), "v") << name;
            }
        };
        EXPECT_EQ(testing_support::RunInChild(readConfig), 0);
    }
    std::filesystem::remove_all(base);
}

}  // namespace
