// tagport-lab image: builds an image from its fields and takes any image apart.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tagimage/ImageGeometry.h"

namespace lab {

struct ImageBuildOptions {
    std::string url;
    std::string mac = std::string(imageformat::kMacSize, '\0');
    std::string number = std::string(imageformat::kNumberSize, '\0');
    std::optional<std::string> model;
    std::optional<int> pcType;  ///< the URL comes from the configuration, and a model not given
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
