// tagport-lab image: builds an image from its fields and takes any image apart.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace lab {

struct ImageBuildOptions {
    std::optional<std::string> url;
    std::optional<std::string> mac;  ///< hexadecimal, like the next two
    std::optional<std::string> number;
    std::optional<std::string> model;
    std::optional<int> pcType;  ///< URL and model come from the configuration
    std::string configDirectory;
    std::string output = "-";
    std::string format = "hex";
};

struct ImageShowOptions {
    std::string file;
    std::string format = "auto";
};

/// The result of the library's own reader for an image.
struct LibraryVerdict {
    bool accepted = false;
    std::vector<std::string> log;
};
LibraryVerdict AskLibrary(std::string_view image);

// Both return the exit status and throw WrongCall or SystemFailure.
int BuildImage(const ImageBuildOptions& options);
int ShowImage(const ImageShowOptions& options);

}  // namespace lab
