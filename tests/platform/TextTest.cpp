// Configuration files, code pages, the current directory and the enumeration.
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/platform/HostedFixture.h"

namespace {

using namespace hosted_test;

constexpr DWORD kSize = 255;

class IniFile : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string pattern = std::filesystem::temp_directory_path() / "iniXXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_directory = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(m_directory); }

    void Write(const std::string& bytes) const {
        std::ofstream(m_directory / "a.ini", std::ios::binary) << bytes;
    }
    /// "?" where the default came back.
    std::wstring Ask(const std::string& name = "\\a.ini", DWORD size = kSize) const {
        const std::wstring path = std::filesystem::path(m_directory.string() + name).wstring();
        WCHAR buffer[kSize] = {};
        SetLastError(0);
        const DWORD count =
            GetPrivateProfileStringW(L"PC_URI", L"key", L"?", buffer, size, path.c_str());
        EXPECT_EQ(buffer[count], L'\0');
        return std::wstring(buffer, count);
    }

    std::filesystem::path m_directory;
};

TEST_F(IniFile, IsReadLineByLine) {
    const std::string head = "[PC_URI]\n";
    const struct {
        std::string file;
        std::wstring value;
    } cases[] = {
        {head + "key=v", L"v"},
        {"[x]\rkey=a\r[pc_uri]\rKEY=b\r", L"b"},
        {"\r\n [ Pc_Uri ] \r\n\t Key \t= v  w \t\r\n", L"v  w"},
        {head + "key=\" in  \"", L" in  "},
        {head + "key='in'", L"in"},
        {head + "key='\"in\"'", L"\"in\""},
        {head + "key='in\"", L"'in\""},
        {head + "key=\"", L"\""},
        {head + "key=", L""},
        {head + "key=a=b;c", L"a=b;c"},
        {head + ";key=a\nkey=b", L"b"},
        {head + "key=1\nkey=2", L"1"},
        {head + "key\nkey=2", L"2"},
        {"key=0\n" + head + "other=1", L"?"},
        {"[PC_URI]\nother=1\n[x]\n[PC_URI]\nkey=2", L"?"},
        {"[PC_URI\nkey=1", L"?"},
        {"[x]\n[PC_URI\nkey=1\n[PC_URI]\nkey=2", L"2"},
        {"\xEF\xBB\xBF" + head + "key=\xC3\xA9\xF0\x9F\x98\x80", L"\u00E9\U0001F600"},
        {head + "key=\xC3\xA9\xFF\xC0\x80x", L"\u00E9\uFFFD\uFFFDx"},
        {std::string("\xFF\xFE[\0P\0C\0_\0U\0R\0I\0]\0\n\0k\0e\0y\0=\0\xE9\0\x3D\xD8\x00\xDE", 34),
         L"\u00E9\U0001F600"},
        {"", L"?"},
    };
    for (const auto& [file, value] : cases) {
        Write(file);
        EXPECT_EQ(Ask(), value) << file;
    }
}

TEST_F(IniFile, IsCutAndRefusedAsOnWindows) {
    Write("[PC_URI]\nkey=" + std::string(300, 'x'));
    EXPECT_EQ(Ask(), std::wstring(kSize - 1, L'x'));
    EXPECT_EQ(Ask("\\a.ini", 4), L"xxx");
    const std::string filler(10U << 20U, 'f');
    Write("[PC_URI]\nlong=" + filler + "\nkey=behind");
    EXPECT_EQ(Ask(), L"behind");
    EXPECT_EQ(GetLastError(), 0U);
    EXPECT_EQ(Ask("\\none.ini"), L"?");
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(Ask(""), L"?");
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    // Opens for its own process and cannot be read at its start, not even by the superuser.
    std::filesystem::create_symlink("/proc/self/mem", m_directory / "unreadable");
    EXPECT_EQ(Ask("\\unreadable"), L"?");
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
}

TEST(CodePage, ConvertsToUtf8WithTheUsualQuestionForTheSize) {
    const WCHAR text[] = L"a\u00E9\u20AC\U0001F600";
    const std::string expected = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    const auto convert = [&](int length, char* out, int size) {
        return WideCharToMultiByte(CP_THREAD_ACP, 0, text, length, out, size, nullptr, nullptr);
    };
    char narrow[11] = {};
    EXPECT_EQ(convert(-1, nullptr, 0), 11);
    EXPECT_EQ(convert(4, nullptr, 0), 10);
    EXPECT_EQ(convert(-1, narrow, sizeof narrow), 11);
    EXPECT_EQ(narrow, expected);
    EXPECT_EQ(convert(-1, narrow, 10), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(convert(0, narrow, 10), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(CurrentDirectory, TellsTheSizeItNeeds) {
    const std::wstring own = std::filesystem::current_path().wstring();
    WCHAR buffer[4096];
    EXPECT_EQ(GetCurrentDirectoryW(4096, buffer), own.size());
    EXPECT_EQ(buffer, own);
    hosted::SetCurrentDirectoryForTests(L"/four");
    EXPECT_EQ(GetCurrentDirectoryW(5, buffer), 6U);
    EXPECT_EQ(buffer, own);
    EXPECT_EQ(GetCurrentDirectoryW(6, buffer), 5U);
    EXPECT_STREQ(buffer, L"/four");
}

TEST(Enumeration, GivesInterfacesInOrderWithWhatFails) {
    OnBothClocks(
        [] {
            const auto driver = std::make_shared<FakeDriver>();
            hosted::HidInterface hid;
            hid.path = L"\\\\?\\hid#good";
            hid.usagePage = 0x464E;
            hid.usage = 0x43;
            hid.vendorId = 0x7A3E;
            hid.productId = 0x10B8;
            hosted::AddHidInterface(hid, driver);
            hid.path = L"\\\\?\\hid#bad";
            hid.detailFails = hid.preparsedDataFails = hid.attributesFail = true;
            hosted::AddHidInterface(hid, driver);
            GUID guid;
            HidD_GetHidGuid(&guid);
            const HDEVINFO list = SetupDiGetClassDevsW(&guid, nullptr, nullptr,
                                                       DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
            SP_DEVICE_INTERFACE_DATA data{};
            data.cbSize = sizeof data;
            const auto path = [&](DWORD index) {
                EXPECT_TRUE(SetupDiEnumDeviceInterfaces(list, nullptr, &guid, index, &data));
                DWORD size = 0;
                SetupDiGetDeviceInterfaceDetailW(list, &data, nullptr, 0, &size, nullptr);
                EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
                std::vector<WCHAR> room(size / sizeof(WCHAR) + 1);
                auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(room.data());
                detail->cbSize = 8;
                EXPECT_FALSE(SetupDiGetDeviceInterfaceDetailW(list, &data, detail, size - 1,
                                                              nullptr, nullptr));
                return SetupDiGetDeviceInterfaceDetailW(list, &data, detail, size, nullptr, nullptr)
                           ? std::wstring(&room[1])
                           : L"failed";
            };
            EXPECT_EQ(path(0), L"\\\\?\\hid#good");
            EXPECT_EQ(path(1), L"failed");
            EXPECT_FALSE(SetupDiEnumDeviceInterfaces(list, nullptr, &guid, 2, &data));
            EXPECT_EQ(GetLastError(), ERROR_NO_MORE_ITEMS);
            EXPECT_TRUE(SetupDiDestroyDeviceInfoList(list));

            const HANDLE good = Open(L"\\\\?\\hid#good", 3);
            PHIDP_PREPARSED_DATA preparsed = nullptr;
            EXPECT_TRUE(HidD_GetPreparsedData(good, &preparsed));
            HIDP_CAPS caps{};
            EXPECT_EQ(HidP_GetCaps(preparsed, &caps), HIDP_STATUS_SUCCESS);
            EXPECT_EQ(caps.UsagePage, 0x464E);
            EXPECT_EQ(caps.Usage, 0x43);
            EXPECT_TRUE(HidD_FreePreparsedData(preparsed));
            EXPECT_EQ(HidP_GetCaps(preparsed, &caps), 0);
            HIDD_ATTRIBUTES attributes{};
            EXPECT_TRUE(HidD_GetAttributes(good, &attributes));
            EXPECT_EQ(attributes.VendorID, 0x7A3E);
            EXPECT_EQ(attributes.ProductID, 0x10B8);
            const HANDLE bad = Open(L"\\\\?\\hid#bad", 3);
            EXPECT_FALSE(HidD_GetPreparsedData(bad, &preparsed));
            EXPECT_FALSE(HidD_GetAttributes(bad, &attributes));
            CloseHandle(good);
            CloseHandle(bad);
            hosted::RemoveHidInterfaces();
            EXPECT_EQ(Open(L"\\\\?\\hid#good", 3), INVALID_HANDLE_VALUE);
        },
        3);
}

}  // namespace
