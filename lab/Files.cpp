// Reads and writes whole files with the C library; paths with std::filesystem.
#include "lab/Files.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <system_error>

#include "lab/Failure.h"

namespace lab {

namespace {

namespace fs = std::filesystem;

struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, Closer>;

std::string Cause() {
    return std::strerror(errno);
}

std::string TooLong() {
    return "is longer than " + std::to_string(kInputLimit) + " bytes, the most that is read";
}

/// Bytes up to one more than the limit: the caller sees that there are too many.
std::string ReadBounded(std::FILE* file, const std::string& place) {
    std::string bytes(kInputLimit + 1, '\0');
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file));
    FailIf(std::ferror(file) != 0, place + ": cannot be read: " + Cause());
    if (bytes.size() > kInputLimit) {
        throw WrongCall(place + ": " + TooLong());
    }
    return bytes;
}

/// Fails unless every byte has reached the operating system. Closes the file in any case.
void WriteAndClose(File file, const std::string& place, std::string_view bytes) {
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size() &&
                         std::fflush(file.get()) == 0;
    const int error = errno;
    const bool closed = std::fclose(file.release()) == 0;
    errno = written ? errno : error;
    FailIf(!written || !closed, place + ": cannot be written: " + Cause());
}

/// A temporary file next to the target, removed unless it becomes the target.
class Replacement {
  public:
    Replacement(fs::path target, std::string place)
        : m_target(std::move(target)), m_temporary(m_target), m_place(std::move(place)) {
        m_temporary += ".part" + std::to_string(std::random_device{}());
    }
    ~Replacement() {
        std::error_code ignored;
        fs::remove(m_temporary, ignored);
    }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    void Write(std::string_view bytes) const {
        File file(std::fopen(m_temporary.string().c_str(), "wb"));
        RefuseIf(file == nullptr, m_place + ": cannot be created: " + Cause());
        WriteAndClose(std::move(file), m_place, bytes);
    }
    void Commit(fs::file_status old) const {
        std::error_code error;
        if (fs::exists(old)) {
            fs::permissions(m_temporary, old.permissions(), error);
        }
        if (!error) {
            fs::rename(m_temporary, m_target, error);
        }
        FailIf(error.value() != 0, m_place + ": cannot be replaced: " + error.message());
    }

  private:
    fs::path m_target;
    fs::path m_temporary;
    std::string m_place;
};

fs::file_status StatusForWriting(const std::string& place, const fs::path& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    RefuseIf(fs::is_directory(status), place + ": is a directory, not a file");
    return status;
}

/// Devices and pipes are not replaced but written.
bool IsReplaced(fs::file_status status) {
    return !fs::exists(status) || fs::is_regular_file(status);
}

Replacement ReplacementOf(const std::string& place, const fs::path& path, fs::file_status status) {
    std::error_code error;
    // A link stays a link: the file that it names is replaced.
    const fs::path target = fs::exists(status) ? fs::canonical(path, error) : path;
    if (fs::exists(status) && File(std::fopen(path.string().c_str(), "r+b")) == nullptr) {
        throw WrongCall(place + ": cannot be written: " + Cause());
    }
    return {target, place};
}

}  // namespace

std::optional<std::string> FileProblem(const fs::path& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (status.type() == fs::file_type::not_found) {
        return "is not there";
    }
    if (fs::is_directory(status)) {
        return "is a directory, not a file";
    }
    if (!error && !fs::is_regular_file(status)) {
        return "is not a regular file";  // opening a pipe without a writer would block
    }
    const std::uintmax_t size = error ? 0 : fs::file_size(path, error);
    if (error) {
        return "cannot be read: " + error.message();
    }
    if (size > kInputLimit) {
        return TooLong();
    }
    const File file(std::fopen(path.string().c_str(), "rb"));
    return file == nullptr ? std::optional("cannot be read: " + Cause()) : std::nullopt;
}

std::string ReadInput(const std::string& option, const std::string& name) {
    if (name == "-") {
        return ReadBounded(stdin, kStandardInput);
    }
    const std::string place = option.empty() ? name : option + " " + name;
    if (const auto problem = FileProblem(name)) {
        std::error_code ignored;
        const bool pipe = fs::is_other(name, ignored);
        throw WrongCall(place + ": " + *problem + (pipe ? ": - reads standard input" : ""));
    }
    const File file(std::fopen(name.c_str(), "rb"));
    RefuseIf(file == nullptr, place + ": cannot be read: " + Cause());
    return ReadBounded(file.get(), place);
}

void CheckReplaceable(const std::string& place, const fs::path& path) {
    const fs::file_status status = StatusForWriting(place, path);
    std::error_code error;
    RefuseIf(!IsReplaced(status), place + ": is not a regular file");
    if (fs::equivalent(path, "/dev/stdout", error)) {
        throw WrongCall(place + ": is the file of standard output, which the run writes to");
    }
    ReplacementOf(place, path, status).Write({});
}

void WriteFile(const std::string& place, const fs::path& path, std::string_view bytes) {
    const fs::file_status status = StatusForWriting(place, path);
    if (IsReplaced(status)) {
        const Replacement replacement = ReplacementOf(place, path, status);
        replacement.Write(bytes);
        replacement.Commit(status);
        return;
    }
    File file(std::fopen(path.string().c_str(), "wb"));
    RefuseIf(file == nullptr, place + ": cannot be written: " + Cause());
    WriteAndClose(std::move(file), place, bytes);
}

}  // namespace lab
