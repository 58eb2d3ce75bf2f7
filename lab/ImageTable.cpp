// Formats an annotated tag image. Prints nothing.
#include "lab/ImageTable.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "lab/Hex.h"
#include "tagimage/ImageGeometry.h"

namespace lab {

namespace {

constexpr std::size_t kBytesInLine = 16;
constexpr int kBytesWidth = static_cast<int>(kBytesInLine) * 3 - 1;

}  // namespace

std::string ImageTable(std::string_view image, const ImageNotes& notes, const Style& style) {
    std::array<char, 160> line{};
    std::snprintf(line.data(), line.size(), "%6s %8s  %-*s  %s\n", "offset", "register",
                  kBytesWidth, "bytes", "field");
    std::string table = style.Bold(line.data());
    for (const ImageField& field : notes.fields) {
        const bool faulty = notes.fault && notes.fault->offset >= field.offset &&
                            notes.fault->offset < field.offset + field.size;
        for (std::size_t at = 0; at < field.size; at += kBytesInLine) {
            const std::size_t offset = field.offset + at;
            const std::size_t count = std::min(kBytesInLine, field.size - at);
            std::snprintf(line.data(), line.size(), "%6zu %8zu  %-*s  ", offset,
                          offset + imageformat::kFirstRegister, kBytesWidth,
                          ToHex(image.substr(offset, count), true).c_str());
            std::string text = line.data();
            if (at == 0) {
                text += field.name;
                if (!field.meaning.empty()) {
                    text += ": " + field.meaning;
                }
                text += faulty ? "   <-- refused" : "";
            }
            text.erase(text.find_last_not_of(' ') + 1);
            table += (faulty ? style.Red(text) : text) + "\n";
        }
    }
    return table;
}

}  // namespace lab
