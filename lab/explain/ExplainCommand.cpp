#include "lab/explain/ExplainCommand.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
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

constexpr std::size_t kBlock = std::size_t{1} << 18;  // bytes of one read or write
constexpr int kPauseMs = 300;                         // of a pipe: what was read so far is told
constexpr std::size_t kLeastLines = 30;               // of a pipe, before its layout is found
constexpr std::size_t kMostLines = 2000;

// How compressed files begin, their names, and what reads them.
constexpr std::array<std::array<std::string_view, 3>, 6> kCompressed{
    {{"\x1F\x8B", "gzip", "zcat"},
     {"PK\x03\x04", "zip", "unzip -p"},
     {"\x28\xB5\x2F\xFD", "zstd", "zstdcat"},
     {"\xFD\x37zXZ", "xz", "xzcat"},
     {"BZh", "bzip2", "bzcat"},
     {"7z\xBC\xAF", "7z", "7z x -so"}}};

/// Names the call that would read the log.
[[noreturn]] void Refuse(std::string_view log, const std::string& what, std::string_view command) {
    const std::string name(log);
    throw WrongCall(name + ": " + what + ": " + std::string(command) + " " +
                    (name == kStandardInput ? "FILE" : name) + " | tagport-lab explain -");
}

/// The bytes of a log.
class Input {
  public:
    explicit Input(const std::string& log) : m_name(log == "-" ? kStandardInput : log) {
        std::error_code error;
        const bool isFile = log != "-";
        RefuseIf(log.empty(), "LOG: the name of the file is empty");
        RefuseIf(isFile && !std::filesystem::exists(log, error), m_name + ": is not there");
        RefuseIf(std::filesystem::is_directory(log, error), m_name + ": is a directory, not a log");
        m_file.reset(isFile ? std::fopen(log.c_str(), "rb") : stdin);
        RefuseIf(m_file == nullptr, m_name + ": cannot be read: " + std::strerror(errno));
        std::setvbuf(m_file.get(), nullptr, _IONBF, 0);
    }

    const std::string& Name() const { return m_name; }
    /// A pipe has nothing more for now.
    bool IsQuiet() const { return !HasInput(m_file.get(), kPauseMs); }

    /// The next bytes; empty at the end. Valid until the next call.
    std::string_view Read() {
        m_block.resize(kBlock);
        const std::ptrdiff_t size = ReadAvailable(m_file.get(), m_block.data(), kBlock);
        FailIf(size < 0, m_name + ": cannot be read: " + std::strerror(errno));
        const std::string_view bytes(m_block.data(), static_cast<std::size_t>(size));
        for (const auto& [begin, name, command] : kCompressed) {
            if (m_isBeginning && bytes.substr(0, begin.size()) == begin) {
                Refuse(m_name, "is compressed (" + std::string(name) + ")", command);
            }
        }
        m_isBeginning = false;
        return bytes;
    }

  private:
    std::string m_name;
    // A call may name standard input twice, so it stays open.
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_file{
        nullptr, [](std::FILE* file) { return file == stdin ? 0 : std::fclose(file); }};
    bool m_isBeginning = true;
    std::string m_block;
};

/// Reads logs from their beginning, one after the other.
class Reading {
  public:
    explicit Reading(ItemSink sink) : m_story(std::move(sink)) {}

    /// Calls `pause` when a pipe has nothing more for now.
    void Run(std::vector<Input>& inputs, const std::function<void()>& pause) {
        for (Input& input : inputs) {
            m_files.push_back(ValidUtf8(input.Name()));
            LogLines lines(
                input.Name(), [this](const LogLine& line) { Take(line); }, m_counts);
            std::string_view block;
            do {
                if ((m_layout || m_sample.size() >= kLeastLines) && input.IsQuiet()) {
                    FindLayout();
                    m_story.Flush();
                    pause();
                }
                block = input.Read();
                lines.Take(block);
                m_bytes += block.size();
            } while (!block.empty());
            lines.End();
        }
        FindLayout();
        m_story.End();
    }
    const Story& TheStory() const { return m_story; }
    Json Summary() const {
        Json summary{{"kind", "summary"},
                     {"file", m_files[0]},
                     {"files", m_files},
                     {"bytes", m_bytes},
                     {"lines", m_counts.lines},
                     {"library", m_counts.library},
                     {"unknown", m_counts.unknown},
                     {"others", m_counts.lines - m_counts.library - m_counts.unknown},
                     {"records", m_counts.records},
                     {"hasTime", m_layout->HasTime()},
                     {"hasWholeSeconds", m_layout->HasWholeSeconds()},
                     {"hasProcess", m_layout->HasProcess()},
                     {"hasThread", m_layout->HasThread()}};
        summary.update(m_story.Figures());
        return summary;
    }

  private:
    void Take(const LogLine& line) {
        if (m_layout) {
            m_story.Take(line.match, {m_layout->Read(line.prefix), line.number, line.file});
            return;
        }
        m_sample.push_back(line);
        if (m_sample.size() == kMostLines) {
            FindLayout();
        }
    }
    /// From the first lines of the library, wherever they are.
    void FindLayout() {
        if (m_layout) {
            return;
        }
        m_layout.emplace(m_sample);
        if (m_layout->IsNewestFirst()) {
            Refuse(m_sample.front().file, "has the newest line first", "tac");
        }
        for (const LogLine& line : m_sample) {
            Take(line);
        }
        m_sample = {};
    }

    Json m_files = Json::array();
    std::optional<PrefixLayout> m_layout;
    std::vector<LogLine> m_sample;  // lines that wait for the layout
    Story m_story;
    LineCounts m_counts;
    std::uint64_t m_bytes = 0;
};

}  // namespace

int Explain(const ExplainOptions& options) {
    std::vector<Input> inputs(options.logs.begin(), options.logs.end());
    const StoryText text(Style::ForOutput(), OutputIsTerminal() ? OutputWidth() : 0, inputs.size());
    std::string waiting;  // to be written in one piece
    const auto write = [&](std::size_t least) {
        if (waiting.size() >= least) {
            WriteOutput(std::exchange(waiting, {}));
        }
    };
    Reading reading([&](const Json& item) {
        if (!options.failures || item["outcome"] == "failed") {
            const bool hasProcesses = reading.TheStory().ProcessCount() > 1;
            waiting += options.json ? JsonLine(item) : text.ItemLines(item, hasProcesses);
            write(kBlock);
        }
    });
    reading.Run(inputs, [&] { write(1); });
    const Json summary = reading.Summary();
    waiting += options.json ? JsonLine(summary) : "\n" + text.Summary(summary);
    write(1);
    return kExitDone;
}

}  // namespace lab
