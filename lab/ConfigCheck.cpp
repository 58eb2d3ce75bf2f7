// Checks config/NfcUri.ini before the library reads it.
#include "lab/ConfigCheck.h"

#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "lab/Failure.h"
#include "lab/Files.h"
#include "lab/System.h"
#include "lab/Terminal.h"
#include "lab/Words.h"
#include "platform/platform.h"
#include "tagimage/ImageGeometry.h"

namespace lab {

namespace {

using imageformat::kMaxUriSize;
using imageformat::kShownUriSize;

constexpr std::size_t kValueChars = 32768;  // a value that is too long is shown completely
constexpr char kSection[] = "PC_URI";
constexpr char kPrefix[] = "https://";
constexpr std::string_view kBigEndianMark = "\xFE\xFF";

// The keys by the PC types that take their URIs from them.
constexpr std::pair<int, std::string_view> kKeys[] = {{5, "orvane_uri"}, {8, "velmo_uri"}};

std::filesystem::path ConfigPath(const std::filesystem::path& directory) {
    return directory / "config" / "NfcUri.ini";
}

/// The value as the library reads it.
std::string Value(const std::filesystem::path& path, std::string_view key) {
    std::vector<WCHAR> wide(kValueChars);
    GetPrivateProfileStringW(L"PC_URI", std::wstring(key.begin(), key.end()).c_str(), L"",
                             wide.data(), static_cast<DWORD>(kValueChars), path.wstring().c_str());
    const int size =
        WideCharToMultiByte(CP_THREAD_ACP, 0, wide.data(), -1, nullptr, 0, nullptr, nullptr);
    if (size <= 1) {
        return {};
    }
    std::string narrow(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_THREAD_ACP, 0, wide.data(), -1, narrow.data(), size, nullptr, nullptr);
    narrow.resize(narrow.find('\0'));
    return narrow;
}

/// The directory as an absolute path that the library can use.
std::filesystem::path AbsoluteDirectory(const std::string& directory) {
    const std::string place = directory.empty() ? "the current directory" : "--config " + directory;
    std::error_code error;
    const std::string named = directory.empty() ? "." : directory;
    const auto status = std::filesystem::status(named, error);
    RefuseIf(!error && !std::filesystem::is_directory(status), place + ": is not a directory");
    const std::filesystem::path path =
        error ? std::filesystem::path() : std::filesystem::absolute(named, error);
    RefuseIf(error.value() != 0, place + ": cannot be used: " + error.message());
    try {
        static_cast<void>(path.wstring());  // the library's names are wide
    } catch (const std::system_error&) {
        throw WrongCall(place + ": cannot be used: the path " + path.string() + " is not UTF-8");
    }
    return path;
}

void CheckValue(const std::string& where, const std::string& value) {
    if (value.rfind(kPrefix, 0) == 0) {
        PrintError("warning: " + where + "=" + value + ": begins with " + kPrefix +
                   ", which phones put before it: they will see it twice");
    }
    if (value.size() == kShownUriSize) {
        return;
    }
    const std::string size = where + "=" + value + ": " + Counted(value.size(), "byte") + ": ";
    RefuseIf(value.size() > kMaxUriSize,
             size + "at most " + std::to_string(kMaxUriSize) + " fit on the tag");
    PrintError("warning: " + size + "exactly " + std::to_string(kShownUriSize) +
               " are needed, because the random number is read back at a fixed register");
}

}  // namespace

bool HasConfiguration(const std::string& directory) {
    std::error_code error;
    return std::filesystem::exists(ConfigPath(directory.empty() ? "." : directory), error) || error;
}

std::string InstalledConfiguration() {
    const std::filesystem::path program = ProgramDirectory();
    const std::string directory = (program / TAGPORT_LAB_DATA).lexically_normal().string();
    return !program.empty() && HasConfiguration(directory) ? directory : std::string();
}

void UseConfiguration(const std::string& directory, int pcType) {
    const std::filesystem::path absolute = AbsoluteDirectory(directory);
    const std::string name = ConfigPath(directory.empty() ? "." : directory).string();
    const auto problem = FileProblem(ConfigPath(absolute));
    RefuseIf(problem.has_value(),
             name + ": " + problem.value_or("") +
                 (directory.empty() ? "; --config DIR names the directory that holds "
                                      "config/NfcUri.ini"
                                    : ""));
    RefuseIf(ReadInput("--config", ConfigPath(absolute).string()).rfind(kBigEndianMark, 0) == 0,
             name +
                 ": is UTF-16 in big-endian order, which Windows does not read; save it in "
                 "little-endian order or as ANSI");
    for (const auto& [type, key] : kKeys) {
        const std::string value = Value(ConfigPath(absolute), key);
        const std::string where = name + ": [" + kSection + "] " + std::string(key);
        RefuseIf(value.empty(),
                 where + " has no value: the file must have both URIs, for every PC type");
        if (type == pcType) {
            CheckValue(where, value);
        }
    }
    UseConfigDirectory(absolute);
}

}  // namespace lab
