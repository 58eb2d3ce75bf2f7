// The terminal, as far as the program cares: whether there is one, colours, and whole files. What
// differs between systems stands in SystemHosted.cpp and SystemWindows.cpp.
#pragma once

#include <string>
#include <string_view>

namespace lab {

/// True when standard output is a terminal.
bool OutputIsTerminal();

/// Standard input and output carry bytes as they are, line ends included.
void UseBinaryStreams();

/// Marks on a text, on a terminal alone; elsewhere the text stays as it is.
class Style {
  public:
    explicit Style(bool colours) : m_colours(colours) {}
    /// Colours when standard output is a terminal and NO_COLOR isn't set.
    static Style ForOutput();

    std::string Bold(const std::string& text) const { return Mark("1", text); }
    std::string Dim(const std::string& text) const { return Mark("2", text); }
    std::string Red(const std::string& text) const { return Mark("31", text); }
    std::string Green(const std::string& text) const { return Mark("32", text); }
    std::string Yellow(const std::string& text) const { return Mark("33", text); }
    std::string Cyan(const std::string& text) const { return Mark("36", text); }

  private:
    std::string Mark(const char* code, const std::string& text) const;
    bool m_colours;
};

/// The bytes of a file, or of standard input for "-". WrongCall with the name when it cannot be
/// read; `limit` bytes at most are read.
std::string ReadWhole(const std::string& name, std::size_t limit);

/// Writes a file, or standard output for "-". WrongCall with the name when it cannot.
void WriteWhole(const std::string& name, std::string_view bytes);

}  // namespace lab
