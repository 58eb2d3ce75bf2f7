// What each byte of a tag image is, and the first check of the reader that a bad image fails.
// Written beside the library's reader, not on top of it, so that the two can be compared.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

struct ImageField {
    std::size_t offset = 0;
    std::size_t size = 0;
    std::string name;
    std::string meaning;  ///< of these bytes; empty where the bytes say it all
};

struct ImageFault {
    std::size_t offset = 0;
    std::string check;  ///< what was looked at, what stands there and what may
};

struct ImageNotes {
    std::vector<ImageField> fields;    ///< in order; together they cover every byte once
    std::optional<ImageFault> fault;   ///< nothing: the reader takes the image
    std::vector<std::string> remarks;  ///< what is unusual and taken all the same
};

/// For any bytes, good or bad. A bad image's fields are named as far as they can be guessed.
ImageNotes AnnotateImage(std::string_view image);

}  // namespace lab
