// An annotated tag image as lines for people.
#pragma once

#include <string>
#include <string_view>

#include "lab/ImageNotes.h"
#include "lab/Terminal.h"

namespace lab {

/// One line or more a field: offset, chip register, bytes, field. A fault is marked where it lies.
std::string ImageTable(std::string_view image, const ImageNotes& notes, const Style& style);

}  // namespace lab
