#include "lab/explain/ExplainCommand.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "lab/Failure.h"
#include "lab/Files.h"
#include "lab/Terminal.h"
#include "lab/explain/LogLines.h"
#include "lab/explain/PrefixLayout.h"
#include "lab/explain/Progress.h"
#include "lab/explain/Story.h"
#include "lab/explain/StoryText.h"

namespace lab {

namespace {

using namespace explain;  // NOLINT(google-build-using-namespace)

constexpr std::size_t kBlock = std::size_t{1} << 18;     // bytes of one read
constexpr std::size_t kKeptPart = std::size_t{2} << 20;  // of a pipe's story
constexpr std::size_t kOutputBlock = std::size_t{1} << 16;
constexpr unsigned kPasses = 2;  // over a file: the summary comes first

struct Closer {
    void operator()(std::FILE* file) const {
        if (file != stdin) {
            std::fclose(file);
        }
    }
};

/// The bytes of the log.
class Input {
  public:
    explicit Input(const std::string& name) : m_name(name == "-" ? kStandardInput : name) {
        namespace fs = std::filesystem;
        if (name.empty()) {
            throw WrongCall("LOG: the name of the file is empty");
        }
        if (name == "-") {
            m_file.reset(stdin);
        } else {
            std::error_code error;
            const fs::file_status status = fs::status(name, error);
            if (status.type() == fs::file_type::not_found) {
                throw WrongCall(m_name + ": is not there");
            }
            if (fs::is_directory(status)) {
                throw WrongCall(m_name + ": is a directory, not a log");
            }
            m_file.reset(std::fopen(name.c_str(), "rb"));
            if (m_file == nullptr) {
                throw WrongCall(m_name + ": cannot be read: " + std::strerror(errno));
            }
            m_isRegular = fs::is_regular_file(status);
            m_size = m_isRegular ? fs::file_size(name, error) : 0;
            m_size = error ? 0 : m_size;
        }
        std::setvbuf(m_file.get(), nullptr, _IONBF, 0);
    }

    const std::string& Name() const { return m_name; }
    /// It can be read again from its beginning.
    bool IsRegular() const { return m_isRegular; }
    std::uint64_t Size() const { return m_size; }
    void Rewind() { std::rewind(m_file.get()); }

    /// The next bytes; empty at the end. Valid until the next call.
    std::string_view Read() {
        m_block.resize(kBlock);
        const std::size_t read = std::fread(m_block.data(), 1, kBlock, m_file.get());
        if (read == 0 && std::ferror(m_file.get()) != 0) {
            throw SystemFailure(m_name + ": cannot be read: " + std::strerror(errno));
        }
        return std::string_view(m_block).substr(0, read);
    }

  private:
    std::string m_name;
    std::unique_ptr<std::FILE, Closer> m_file;
    bool m_isRegular = false;
    std::uint64_t m_size = 0;
    std::string m_block;
};

/// One reading of a log from its beginning.
class Reading {
  public:
    /// Without a layout, finds it from the first lines of the library, wherever they are.
    Reading(std::optional<PrefixLayout> layout, Story::Sink sink)
        : m_layout(std::move(layout)),
          m_story(std::move(sink)),
          m_lines([this](const LogLine& line) { TakeLine(line); }) {}
    ~Reading() = default;
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;

    void Take(std::string_view bytes) {
        m_bytes += bytes.size();
        m_lines.Take(bytes);
    }
    void End() {
        m_lines.End();
        if (!m_layout) {
            FindLayout();
        }
        m_story.End();
    }
    std::uint64_t Bytes() const { return m_bytes; }
    /// After the end, or once an item was told.
    const PrefixLayout& Layout() const { return *m_layout; }
    const Story& TheStory() const { return m_story; }
    LogFacts Facts(const std::string& name) const {
        return {name,
                m_bytes,
                m_lines.Lines(),
                m_lines.LibraryLines(),
                m_lines.Records(),
                m_lines.UnknownLines(),
                m_lines.OtherLines(),
                *m_layout};
    }

  private:
    /// A line that waits for the layout.
    struct EarlyLine {
        std::uint64_t number = 0;
        std::string prefix;
        std::string text;
    };

    void TakeLine(const LogLine& line) {
        if (m_layout) {
            Tell(line.number, line.prefix, line.match);
            return;
        }
        m_sample.Add(line);
        m_early.push_back({line.number, std::string(PrefixLayout::Shortened(line.prefix)),
                           std::string(line.match.text)});
        if (m_early.size() == PrefixSample::kMostLines) {
            FindLayout();
        }
    }
    void FindLayout() {
        m_layout = std::exchange(m_sample, PrefixSample()).Find();
        for (const EarlyLine& line : std::exchange(m_early, {})) {
            Tell(line.number, line.prefix, *Meanings::Get().Find(line.text));
        }
    }
    void Tell(std::uint64_t number, std::string_view prefix, const Match& match) {
        const Origin origin = m_layout->Read(prefix);
        m_story.Take({number, match, origin.time, origin.micros, origin.process, origin.thread});
    }

    std::optional<PrefixLayout> m_layout;
    PrefixSample m_sample;
    std::vector<EarlyLine> m_early;
    Story m_story;
    LogLines m_lines;
    std::uint64_t m_bytes = 0;
};

/// Collects small pieces, and writes large ones.
class Output {
  public:
    ~Output() { WriteOutput(m_text); }
    Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    void Add(std::string_view text) {
        m_text += text;
        if (m_text.size() >= kOutputBlock) {
            WriteOutput(m_text);
            m_text.clear();
        }
    }

  private:
    std::string m_text;
};

/// A story that waits for its summary: its beginning and its end.
class KeptStory {
  public:
    void Add(const std::string& text) {
        if (m_isFirst && m_first.Add(text)) {
            return;
        }
        m_isFirst = false;
        if (!m_last.Add(text)) {
            m_dropped += m_older.items;
            std::swap(m_older, m_last);
            m_last.text.clear();
            m_last.items = 0;
            m_last.Add(text);
        }
    }
    std::uint64_t Dropped() const { return m_dropped; }
    void Write(Output& output, const std::string& gap) const {
        output.Add(m_first.text);
        if (m_dropped > 0) {
            output.Add(gap);
        }
        output.Add(m_older.text);
        output.Add(m_last.text);
    }

  private:
    struct Part {
        std::string text;
        std::uint64_t items = 0;
        bool Add(const std::string& item) {
            if (!text.empty() && text.size() + item.size() > kKeptPart) {
                return false;
            }
            text.reserve(kKeptPart);  // so that growing never holds it twice
            text += item;
            ++items;
            return true;
        }
    };
    Part m_first;
    Part m_older;  // dropped as a whole when the last one is full
    Part m_last;
    bool m_isFirst = true;
    std::uint64_t m_dropped = 0;
};

void RefuseCompressed(const std::string& log, const std::string& name, std::string_view bytes) {
    struct Format {
        std::string_view begin;
        const char* name;
        const char* command;
    };
    constexpr std::array<Format, 6> kFormats{{{"\x1F\x8B", "gzip", "zcat"},
                                              {"PK\x03\x04", "zip", "unzip -p"},
                                              {"\x28\xB5\x2F\xFD", "zstd", "zstdcat"},
                                              {"\xFD\x37zXZ", "xz", "xzcat"},
                                              {"BZh", "bzip2", "bzcat"},
                                              {"7z\xBC\xAF", "7z", "7z x -so"}}};
    for (const Format& format : kFormats) {
        if (bytes.substr(0, format.begin.size()) == format.begin) {
            throw WrongCall(name + ": is compressed (" + format.name + "): " + format.command +
                            " " + (log == "-" ? "FILE" : log) + " | tagport-lab explain -");
        }
    }
}

std::string GapText(std::uint64_t dropped, bool json) {
    if (json) {
        return R"({"kind":"gap","items":)" + std::to_string(dropped) + "}\n";
    }
    return "\n... " + std::to_string(dropped) +
           " items are left out here: of a pipe only the beginning and the end of the story are "
           "kept. Give the log as a file to see all.\n\n";
}

}  // namespace

int Explain(const ExplainOptions& options) {
    Input input(options.log);
    const StoryText text(options.json ? Style(false) : Style::ForOutput());
    const auto render = [&](const Item& item, bool hasProcesses) {
        return options.json ? ItemJson(item) : text.ItemLines(item, hasProcesses);
    };
    KeptStory kept;
    Reading first(std::nullopt, [&](const Item& item) {
        if (!input.IsRegular()) {
            // Whether a pipe has several processes is not known yet.
            kept.Add(render(item, first.Layout().HasProcess()));
        }
    });
    {
        Progress progress(input.Size(), kPasses, true);
        for (std::string_view bytes; !(bytes = input.Read()).empty();) {
            if (first.Bytes() == 0) {
                RefuseCompressed(options.log, input.Name(), bytes);
            }
            first.Take(bytes);
            progress.Show(first.Bytes());
        }
    }
    first.End();
    const bool hasProcesses = first.TheStory().Processes().size() > 1;

    Output output;
    const LogFacts facts = first.Facts(input.Name());
    output.Add(options.json ? SummaryJson(facts, first.TheStory())
                            : text.Summary(facts, first.TheStory()));
    if (!input.IsRegular()) {
        kept.Write(output, GapText(kept.Dropped(), options.json));
        return kExitDone;
    }
    // A log that is still written to must not get a story that its summary does not know.
    input.Rewind();
    Progress progress(input.Size(), kPasses, !OutputIsTerminal());
    Reading second(first.Layout().Again(),
                   [&](const Item& item) { output.Add(render(item, hasProcesses)); });
    for (std::string_view bytes; second.Bytes() < first.Bytes();) {
        bytes = input.Read();
        if (bytes.empty()) {
            break;
        }
        second.Take(bytes.substr(0, first.Bytes() - second.Bytes()));
        progress.Show(first.Bytes() + second.Bytes());
    }
    second.End();
    return kExitDone;
}

}  // namespace lab
