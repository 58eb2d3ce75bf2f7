// Names each byte of a tag image and the first check that a bad image fails. Independent of the
// library's reader, so that the two can be compared.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lab/Terminal.h"

namespace lab {

struct ImageField {
    std::size_t offset = 0;
    std::size_t size = 0;
    std::string name;
    std::string meaning;  ///< what the bytes mean; empty when the name is enough
};

struct ImageFault {
    std::size_t offset = 0;
    std::string check;  ///< the field, its value, and the values that are allowed

    std::string Text() const { return "offset " + std::to_string(offset) + ": " + check; }
};

struct ImageNotes {
    std::vector<ImageField> fields;    ///< in order; every byte belongs to exactly one field
    std::optional<ImageFault> fault;   ///< empty: the image is accepted
    std::vector<std::string> remarks;  ///< what is unusual but accepted
};

/// The image in the memory of a tag, by its length byte; as much of it as there is.
std::string_view ImageIn(std::string_view memory);

/// Takes any bytes. The fields of a bad image are named as far as they can be guessed.
ImageNotes AnnotateImage(std::string_view image);

/// One or more lines per field for people: offset, chip register, bytes, field. The field with the
/// fault is marked.
std::string ImageTable(std::string_view image, const ImageNotes& notes, const Style& style);

}  // namespace lab
