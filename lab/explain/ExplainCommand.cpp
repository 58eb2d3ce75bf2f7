#include "lab/explain/ExplainCommand.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <memory>
#include <numeric>
#include <optional>
#include <utility>

#include "lab/Failure.h"
#include "lab/Files.h"
#include "lab/System.h"
#include "lab/Terminal.h"
#include "lab/Words.h"
#include "lab/explain/LogLines.h"
#include "lab/explain/Prefix.h"
#include "lab/explain/Story.h"
#include "lab/explain/StoryText.h"

namespace lab {

namespace {

using namespace explain;  // NOLINT(google-build-using-namespace)

constexpr std::size_t kBlock = std::size_t{1} << 18;     // bytes of one read
constexpr std::size_t kKeptPart = std::size_t{2} << 20;  // of a pipe's story
constexpr std::size_t kOutputBlock = std::size_t{1} << 16;
constexpr int kPauseMs = 300;  // of a pipe: what was read so far is told

struct Closer {
    void operator()(std::FILE* file) const {
        if (file != stdin) {
            std::fclose(file);
        }
    }
};

/// The bytes of a log.
class Input {
  public:
    explicit Input(const std::string& log) : m_log(log), m_name(log == "-" ? kStandardInput : log) {
        std::error_code error;
        const std::filesystem::file_status status = std::filesystem::status(log, error);
        if (log.empty() || (log != "-" && !std::filesystem::exists(status))) {
            throw WrongCall(log.empty() ? "LOG: the name of the file is empty"
                                        : m_name + ": is not there");
        }
        if (std::filesystem::is_directory(status)) {
            throw WrongCall(m_name + ": is a directory, not a log");
        }
        m_file.reset(log == "-" ? stdin : std::fopen(log.c_str(), "rb"));
        m_isRegular = log != "-" && std::filesystem::is_regular_file(status);
        if (m_file == nullptr) {
            throw WrongCall(m_name + ": cannot be read: " + std::strerror(errno));
        }
        std::setvbuf(m_file.get(), nullptr, _IONBF, 0);
    }

    const std::string& Name() const { return m_name; }
    /// It can be read again from its beginning.
    bool IsRegular() const { return m_isRegular; }
    void Rewind() { std::rewind(m_file.get()); }
    bool IsQuiet() const { return !m_isRegular && !HasInput(m_file.get(), kPauseMs); }

    /// The next bytes; empty at the end. Valid until the next call.
    std::string_view Read() {
        m_block.resize(kBlock);
        const std::ptrdiff_t size = ReadAvailable(m_file.get(), m_block.data(), kBlock);
        if (size < 0) {
            throw SystemFailure(m_name + ": cannot be read: " + std::strerror(errno));
        }
        const std::string_view bytes(m_block.data(), static_cast<std::size_t>(size));
        if (std::exchange(m_isBeginning, false)) {
            RefuseCompressed(bytes);
        }
        return bytes;
    }
    /// The call that would read it.
    [[noreturn]] void Refuse(const std::string& what, const std::string& command) const {
        throw WrongCall(m_name + ": " + what + ": " + command + " " +
                        (m_log == "-" ? "FILE" : m_log) + " | tagport-lab explain -");
    }

  private:
    void RefuseCompressed(std::string_view bytes) const {
        constexpr std::array<std::array<std::string_view, 3>, 6> kFormats{
            {{"\x1F\x8B", "gzip", "zcat"},
             {"PK\x03\x04", "zip", "unzip -p"},
             {"\x28\xB5\x2F\xFD", "zstd", "zstdcat"},
             {"\xFD\x37zXZ", "xz", "xzcat"},
             {"BZh", "bzip2", "bzcat"},
             {"7z\xBC\xAF", "7z", "7z x -so"}}};
        for (const auto& [begin, name, command] : kFormats) {
            if (bytes.substr(0, begin.size()) == begin) {
                Refuse("is compressed (" + std::string(name) + ")", std::string(command));
            }
        }
    }

    std::string m_log;
    std::string m_name;
    std::unique_ptr<std::FILE, Closer> m_file;
    bool m_isRegular = false;
    bool m_isBeginning = true;
    std::string m_block;
};

/// The items of a pipe that wait for their summary: the first ones and the last ones.
class KeptItems {
  public:
    void Add(const std::string& item) {
        if (m_last.empty() && m_first.size() + item.size() <= kKeptPart) {
            m_first += item;
            return;
        }
        m_last.push_back(item);
        for (m_lastSize += item.size(); m_lastSize > kKeptPart && m_last.size() > 1; ++m_dropped) {
            m_lastSize -= m_last.front().size();
            m_last.pop_front();
        }
    }
    std::string Text() const {
        std::string text = m_first;
        text +=
            m_dropped == 0 ? "" : R"({"kind":"gap","items":)" + std::to_string(m_dropped) + "}\n";
        for (const std::string& item : m_last) {
            text += item;
        }
        return text;
    }

  private:
    std::string m_first;
    std::deque<std::string> m_last;
    std::size_t m_lastSize = 0;
    std::uint64_t m_dropped = 0;
};

/// One reading of all logs from their beginning.
class Reading {
  public:
    /// Without a layout, finds it from the first lines of the library, wherever they are.
    Reading(std::vector<Input>& inputs, std::optional<PrefixLayout> layout, Story::Sink sink)
        : m_inputs(inputs), m_layout(std::move(layout)), m_story(std::move(sink)) {}

    /// Takes at most `most` bytes of each log, where there is a limit. Calls `pause` when a pipe
    /// has nothing more for now.
    template <class Pause>
    void Run(const std::vector<std::uint64_t>& most, Pause pause) {
        for (m_file = 0; m_file < m_inputs.size(); ++m_file) {
            Input& input = m_inputs[m_file];
            LogLines lines([this](const LogLine& line) { TakeLine(line); }, m_counts);
            std::uint64_t& bytes = m_bytes.emplace_back(0);
            const auto left = [&] { return most.empty() ? kBlock : most[m_file] - bytes; };
            while (left() > 0) {
                if (input.IsQuiet() && (m_layout || m_sample.Lines().size() >= kLeastLines)) {
                    FindLayout();
                    m_story.Flush();
                    pause();
                }
                const std::string_view block = input.Read().substr(0, left());
                if (block.empty()) {
                    break;
                }
                lines.Take(block);
                bytes += block.size();
            }
            lines.End();
        }
        m_file = 0;
        FindLayout();
        m_story.End();
    }
    const std::vector<std::uint64_t>& Bytes() const { return m_bytes; }
    const Story& TheStory() const { return m_story; }
    const PrefixLayout& Layout() const { return *m_layout; }
    Json Summary() const {
        Json files = Json::array();
        for (const Input& input : m_inputs) {
            files.push_back(ValidUtf8(input.Name()));
        }
        Json summary{{"kind", "summary"},
                     {"file", files[0]},
                     {"files", files},
                     {"bytes", std::accumulate(m_bytes.begin(), m_bytes.end(), std::uint64_t{0})},
                     {"lines", m_counts.lines},
                     {"library", m_counts.library},
                     {"unknown", m_counts.unknown},
                     {"others", m_counts.Others()},
                     {"records", m_counts.records},
                     {"hasTime", m_layout->HasTime()},
                     {"hasWholeSeconds", m_layout->HasWholeSeconds()},
                     {"hasProcess", m_layout->HasProcess()},
                     {"hasThread", m_layout->HasThread()}};
        summary.update(m_story.Figures());
        return summary;
    }

  private:
    static constexpr std::size_t kLeastLines = 30;  // of a pipe, before its layout is found

    void TakeLine(const LogLine& line) {
        if (m_layout) {
            Tell(m_file, line.number, line.prefix, line.match);
            return;
        }
        m_sample.Add(line, m_file);
        if (m_sample.Lines().size() == PrefixSample::kMostLines) {
            FindLayout();
        }
    }
    void FindLayout() {
        if (m_layout) {
            return;
        }
        m_layout = m_sample.Find();
        if (m_layout->IsNewestFirst()) {
            m_inputs[m_file].Refuse("has the newest line first", "tac");
        }
        for (const PrefixSample::Line& line : m_sample.Lines()) {
            Tell(line.file, line.number, line.prefix, *FindMeaning(line.text));
        }
        m_sample = PrefixSample();
    }
    void Tell(unsigned file, std::uint64_t number, std::string_view prefix, const Match& match) {
        const Origin origin = m_layout->Read(prefix);
        m_story.Take({match,
                      {number, m_inputs[file].Name(), std::string(origin.time), origin.micros},
                      origin.process,
                      origin.thread});
    }

    std::vector<Input>& m_inputs;
    unsigned m_file = 0;
    std::optional<PrefixLayout> m_layout;
    PrefixSample m_sample;
    Story m_story;
    LineCounts m_counts;
    std::vector<std::uint64_t> m_bytes;  // of each log
};

}  // namespace

int Explain(const ExplainOptions& options) {
    std::vector<Input> inputs(options.logs.begin(), options.logs.end());
    const bool isTerminal = OutputIsTerminal() && !options.json;
    const StoryText text(isTerminal ? Style::ForOutput() : Style(false),
                         isTerminal ? OutputWidth() : 0, inputs.size());
    std::string waiting;  // to be written in one piece
    const auto write = [&](std::size_t least) {
        if (waiting.size() >= least) {
            WriteOutput(std::exchange(waiting, {}));
        }
    };
    const auto isWanted = [&](const Json& item) {
        return !options.failures || item["outcome"] == "failed";
    };
    const bool isRegular = std::all_of(inputs.begin(), inputs.end(),
                                       [](const Input& input) { return input.IsRegular(); });
    KeptItems kept;
    Reading first(inputs, std::nullopt, [&](const Json& item) {
        if (!isWanted(item)) {
            return;
        }
        if (!options.json) {
            waiting += text.ItemLines(item, first.TheStory().ProcessCount() > 1);
            write(kOutputBlock);
        } else if (!isRegular) {
            kept.Add(JsonLine(item));
        }
    });
    first.Run({}, [&] { write(1); });
    waiting += options.json ? JsonLine(first.Summary()) + kept.Text()
                            : "\n" + text.Summary(first.Summary());
    if (options.json && isRegular) {
        // What is written to a log meanwhile would not be in its summary.
        std::for_each(inputs.begin(), inputs.end(), [](Input& input) { input.Rewind(); });
        Reading second(inputs, first.Layout().Again(), [&](const Json& item) {
            waiting += isWanted(item) ? JsonLine(item) : "";
            write(kOutputBlock);
        });
        second.Run(first.Bytes(), [] {});
    }
    write(1);
    return kExitDone;
}

}  // namespace lab
