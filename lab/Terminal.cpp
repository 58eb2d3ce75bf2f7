#include "lab/Terminal.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "lab/Failure.h"

namespace lab {

namespace {

struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, Closer>;

[[noreturn]] void Fail(const std::string& name, const char* verb) {
    throw WrongCall(name + ": cannot be " + verb + ": " + std::strerror(errno));
}

}  // namespace

Style Style::ForOutput() {
    return Style(OutputIsTerminal() && std::getenv("NO_COLOR") == nullptr);
}

std::string Style::Mark(const char* code, const std::string& text) const {
    return m_colours ? std::string("\033[") + code + "m" + text + "\033[0m" : text;
}

std::string ReadWhole(const std::string& name, std::size_t limit) {
    File owned;
    std::FILE* file = stdin;
    if (name != "-") {
        std::error_code ignored;
        if (std::filesystem::is_directory(name, ignored)) {
            throw WrongCall(name + ": is a directory");
        }
        owned.reset(std::fopen(name.c_str(), "rb"));
        file = owned.get();
        if (file == nullptr) {
            Fail(name, "read");
        }
    }
    std::string bytes;
    char buffer[4096];
    while (bytes.size() < limit) {
        const std::size_t count =
            std::fread(buffer, 1, std::min(sizeof(buffer), limit - bytes.size()), file);
        bytes.append(buffer, count);
        if (count == 0) {
            break;
        }
    }
    if (std::ferror(file) != 0) {
        Fail(name, "read");
    }
    return bytes;
}

void WriteWhole(const std::string& name, std::string_view bytes) {
    File owned;
    std::FILE* file = stdout;
    if (name != "-") {
        owned.reset(std::fopen(name.c_str(), "wb"));
        file = owned.get();
        if (file == nullptr) {
            Fail(name, "written");
        }
    }
    if (std::fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size() ||
        std::fflush(file) != 0) {
        Fail(name, "written");
    }
}

}  // namespace lab
