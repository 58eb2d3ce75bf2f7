// Standard output and standard error: one way to write to each, and colours. What differs between
// operating systems is in SystemEmulated.cpp and SystemWindows.cpp.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace lab {

/// True when standard output is a terminal.
bool OutputIsTerminal();

constexpr std::size_t kUsualWidth = 80;  ///< of a terminal that does not say its width

/// Columns of the terminal on standard output.
std::size_t OutputWidth();

/// To be called first. Standard input and output carry bytes unchanged, line ends included; writing
/// to a closed standard output fails and does not end the process.
void PrepareStreams();

/// Writes to standard output and flushes it. When that fails, the process ends at once with one
/// line on standard error and status 1. Any thread.
void WriteOutput(std::string_view bytes);

/// Writes one line to standard error, with the program's name before it. Control characters are
/// shown escaped. Any thread.
void PrintError(std::string_view text);

/// Writes to standard error as it is, for what is no message. Any thread.
void WriteError(std::string_view bytes);

/// Adds colours to text for a terminal; elsewhere the text stays as it is.
class Style {
  public:
    explicit Style(bool colours) : m_colours(colours) {}
    /// Colours when standard output is a terminal, TERM is not "dumb" and NO_COLOR is not set.
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

}  // namespace lab
