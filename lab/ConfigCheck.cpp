#include "lab/ConfigCheck.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "lab/Failure.h"
#include "platform/platform.h"
#include "tagimage/ImageGeometry.h"

namespace lab {

namespace {

constexpr std::size_t kReadBackUrlSize = 50;  // the size that fits the register of types 5 and 8
constexpr std::size_t kMaxImageUrl = 162;
constexpr std::size_t kValueChars = 255;
constexpr char kSection[] = "PC_URI";

struct Key {
    const char* name;
    const WCHAR* wide;
    int pcType;
};
constexpr std::array<Key, 2> kKeys{
    {{"orvane_uri", L"orvane_uri", 5}, {"velmo_uri", L"velmo_uri", 8}}};

std::filesystem::path ConfigPath(const std::string& directory) {
    return std::filesystem::path(directory.empty() ? "." : directory) / "config" / "NfcUri.ini";
}

/// The value as the library gets it.
std::string Value(const std::filesystem::path& path, const Key& key) {
    WCHAR wide[kValueChars] = {};
    const std::wstring name = std::filesystem::absolute(path).wstring();
    GetPrivateProfileStringW(L"PC_URI", key.wide, L"", wide, static_cast<DWORD>(kValueChars),
                             name.c_str());
    const int size = WideCharToMultiByte(CP_THREAD_ACP, 0, wide, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 1) {
        return {};
    }
    std::string narrow(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_THREAD_ACP, 0, wide, -1, narrow.data(), size, nullptr, nullptr);
    narrow.resize(narrow.find('\0'));
    return narrow;
}

std::optional<std::string> FileProblem(const std::filesystem::path& path) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (!std::filesystem::exists(status)) {
        return "is not there";
    }
    if (std::filesystem::is_directory(status)) {
        return "is a directory, not a file";
    }
    std::FILE* file = std::fopen(path.string().c_str(), "rb");
    if (file == nullptr) {
        return std::string("cannot be read: ") + std::strerror(errno);
    }
    std::fclose(file);
    return std::nullopt;
}

}  // namespace

ConfigReport CheckConfig(const std::string& directory, int pcType) {
    std::error_code ignored;
    if (!directory.empty() && !std::filesystem::is_directory(directory, ignored)) {
        throw WrongCall("--config " + directory + ": there is no such directory");
    }
    const std::filesystem::path path = ConfigPath(directory);
    const std::string name = path.string();
    if (const auto problem = FileProblem(path)) {
        return {name + ": " + *problem, {}};
    }
    ConfigReport report;
    for (const Key& key : kKeys) {
        const std::string value = Value(path, key);
        const std::string where = name + ": [" + kSection + "] " + key.name;
        if (value.empty()) {
            report.error = where +
                           " has no value: both URIs must stand in the file, for every PC "
                           "type";
            return report;
        }
        if (key.pcType != pcType || value.size() == kReadBackUrlSize) {
            continue;
        }
        const std::string size =
            where + "=" + value + ": " + std::to_string(value.size()) + " bytes: ";
        if (value.size() > kMaxImageUrl) {
            report.error = size + "at most " + std::to_string(kMaxImageUrl) + " fit on the tag";
        } else {
            report.warning = size + "exactly " + std::to_string(kReadBackUrlSize) +
                             " are needed, for the random number is read back at a fixed register";
        }
    }
    return report;
}

}  // namespace lab
