// tagport-lab image: makes an image from its fields, and takes any image apart.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace lab {

struct ImageBuildOptions {
    std::optional<std::string> url;
    std::optional<std::string> mac;  ///< hexadecimal, as the two below
    std::optional<std::string> number;
    std::optional<std::string> model;
    std::optional<int> pcType;  ///< URL and model come from the configuration instead
    std::string configDirectory;
    std::string output = "-";
    std::string format = "hex";
};

struct ImageShowOptions {
    std::string file;
    std::string format = "auto";
};

/// What the library's own reader says to an image.
struct LibraryVerdict {
    bool accepted = false;
    std::vector<std::string> log;
};
LibraryVerdict AskLibrary(std::string_view image);

// Both give the exit status and throw WrongCall.
int BuildImage(const ImageBuildOptions& options);
int ShowImage(const ImageShowOptions& options);

}  // namespace lab
