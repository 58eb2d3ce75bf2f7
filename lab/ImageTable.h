// Formats an annotated tag image as a table for people.
#pragma once

#include <string>
#include <string_view>

#include "lab/ImageNotes.h"
#include "lab/Terminal.h"

namespace lab {

/// One or more lines per field: offset, chip register, bytes, field. The field with the fault is
/// marked.
std::string ImageTable(std::string_view image, const ImageNotes& notes, const Style& style);

}  // namespace lab
