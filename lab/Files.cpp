// Reads and writes whole files. The cause of a failure is in errno, where the streams leave it.
#include "lab/Files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <random>
#include <system_error>

#include "lab/Failure.h"

namespace lab {

namespace {

namespace fs = std::filesystem;

std::string Cause() {
    return std::strerror(errno);
}

std::string TooLong() {
    return "is longer than " + std::to_string(kInputLimit) + " bytes, the most that is read";
}

/// Reads one byte more than the limit at most: then there are too many.
std::string ReadBounded(std::istream& stream, const std::string& place) {
    std::string bytes(kInputLimit + 1, '\0');
    stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    // A failure of stdin looks like its end to the stream.
    const bool hasFailed = stream.bad() || (&stream == &std::cin && std::ferror(stdin) != 0);
    FailIf(hasFailed, place + ": cannot be read: " + Cause());
    bytes.resize(static_cast<std::size_t>(stream.gcount()));
    RefuseIf(bytes.size() > kInputLimit, place + ": " + TooLong());
    return bytes;
}

/// Fails unless every byte has reached the operating system.
void WriteAll(std::ofstream file, const std::string& place, std::string_view bytes,
              const char* opening) {
    RefuseIf(!file, place + ": cannot be " + opening + ": " + Cause());
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    FailIf(!file, place + ": cannot be written: " + Cause());
}

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

/// Writes to a temporary file beside the target, which then becomes the target; or, for a trial, is
/// removed again, as after a failure.
void Replace(const std::string& place, const fs::path& path, fs::file_status status,
             std::string_view bytes, bool isTrial) {
    std::error_code error;
    const bool exists = fs::exists(status);
    // A link stays a link: the file that it names is replaced.
    const fs::path target = exists ? fs::canonical(path, error) : path;
    if (exists && !std::fstream(path, std::ios::binary | std::ios::in | std::ios::out)) {
        throw WrongCall(place + ": cannot be written: " + Cause());
    }
    fs::path temporary = target;
    temporary += ".part" + std::to_string(std::random_device{}());
    const auto remove = [](const fs::path* file) {
        std::error_code ignored;
        fs::remove(*file, ignored);
    };
    const std::unique_ptr<const fs::path, decltype(remove)> removed(&temporary, remove);
    WriteAll(std::ofstream(temporary, std::ios::binary), place, bytes, "created");
    if (isTrial) {
        return;
    }
    if (exists) {
        fs::permissions(temporary, status.permissions(), error);
    }
    if (!error) {
        fs::rename(temporary, target, error);
    }
    FailIf(error.value() != 0, place + ": cannot be replaced: " + error.message());
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
    return std::ifstream(path, std::ios::binary) ? std::nullopt
                                                 : std::optional("cannot be read: " + Cause());
}

std::string ReadInput(const std::string& option, const std::string& name) {
    if (name == "-") {
        return ReadBounded(std::cin, kStandardInput);
    }
    const std::string place = option.empty() ? name : option + " " + name;
    if (const auto problem = FileProblem(name)) {
        std::error_code ignored;
        const bool pipe = fs::is_other(name, ignored);
        throw WrongCall(place + ": " + *problem + (pipe ? ": - reads standard input" : ""));
    }
    std::ifstream file(name, std::ios::binary);
    RefuseIf(!file, place + ": cannot be read: " + Cause());
    return ReadBounded(file, place);
}

void CheckReplaceable(const std::string& place, const fs::path& path) {
    const fs::file_status status = StatusForWriting(place, path);
    std::error_code error;
    RefuseIf(!IsReplaced(status), place + ": is not a regular file");
    if (fs::equivalent(path, "/dev/stdout", error)) {
        throw WrongCall(place + ": is the file of standard output, which the run writes to");
    }
    Replace(place, path, status, {}, true);
}

void WriteFile(const std::string& place, const fs::path& path, std::string_view bytes) {
    const fs::file_status status = StatusForWriting(place, path);
    if (IsReplaced(status)) {
        Replace(place, path, status, bytes, false);
    } else {
        WriteAll(std::ofstream(path, std::ios::binary), place, bytes, "written");
    }
}

}  // namespace lab
