// Connects a run's parts: pc, script, player and output.
#include "lab/RunCommand.h"

#include <cmath>
#include <filesystem>
#include <memory>
#include <random>

#include "lab/ConfigCheck.h"
#include "lab/Failure.h"
#include "lab/Files.h"
#include "lab/HumanOutput.h"
#include "lab/ImageNotes.h"
#include "lab/Judge.h"
#include "lab/Player.h"
#include "lab/Report.h"
#include "lab/Script.h"
#include "lab/System.h"
#include "lab/Terminal.h"
#include "lab/Words.h"
#include "lab/explain/StoryText.h"
#include "tagimage/ImageGeometry.h"

namespace lab {

namespace {

constexpr char kVisitName[] = "visit";  // the script that runs when none is given

/// One object as JSON on one line, in ASCII.
std::string JsonOf(Json object) {
    for (auto& field : object) {
        if (field.is_string()) {
            field = ValidUtf8(field.get_ref<const std::string&>());
        }
    }
    return object.dump(-1, ' ', true);
}

/// Explains the log of a run while it is written. Called by one thread at a time.
class LiveStory {
  public:
    explicit LiveStory(Style style) : m_text(style, OutputIsTerminal() ? OutputWidth() : 0, 0) {}

    /// Takes an object of the run; returns what its line of the log has completed, as lines.
    std::string Take(const Json& object) {
        if (object["kind"] != "log") {
            return {};
        }
        std::string line = object["line"];
        line.resize(std::min(line.rfind('('), line.size()));  // the origin ends the line
        if (const auto match = explain::FindMeaning(line)) {
            const long long micros = std::llround(object["t"].get<double>() * 1000);
            m_story.Take(*match, {{TimeText(object), micros, {}, object["thread"]}, 1});
        }
        return std::exchange(m_lines, {});
    }
    /// What is not finished, and the figures.
    std::string End() {
        m_story.End();
        return m_lines + "\nWhat the log says:\n" + m_text.Figures(m_story.Figures());
    }

  private:
    explain::StoryText m_text;
    std::string m_lines;  // that are complete and not returned yet
    explain::Story m_story{[this](const Json& item) { m_lines += m_text.ItemLines(item, false); }};
};

Script ReadScript(const std::string& name) {
    // The name is printed before each message about a line.
    return ParseScript(name == "-" ? kStandardInput : Printable(name), ReadInput("--script", name));
}

void PrintTag(const std::string& memory, const Style& style) {
    const std::string_view image = ImageIn(memory);
    if (image.size() < imageformat::kFrameSize) {
        return;
    }
    const ImageNotes notes = AnnotateImage(image);
    std::string text =
        "\n" + style.Bold("The tag at the end:") + "\n" + ImageTable(image, notes, style);
    if (notes.fault) {
        text += style.Red("not a valid image") + ": " + notes.fault->Text() + "\n";
    }
    WriteOutput(text);
}

void PrintSum(const Player& player, bool explained, const Style& style) {
    const auto count = [&](int event) {
        return std::to_string(player.Events().Count(event)) + " of " + std::to_string(event);
    };
    WriteOutput("\nevents: " + count(3) + ", " + count(1) + ", " + count(4) + ".  " +
                (player.Failures() == 0
                     ? style.Green("Everything worked.")
                     : style.Red(std::to_string(player.Failures()) + " failed.") +
                           (explained ? "" : "  --explain says what the log means.")) +
                "\n");
}

/// The directory of the configuration. A tag of the PC's own is never filled with an example.
std::string ConfigurationOf(const RunOptions& options, const PcOptions& merged) {
    const bool takesExample = options.configDirectory.empty() &&
                              (!HasOwnDevices() || merged.route) && !HasConfiguration("");
    return takesExample ? InstalledConfiguration() : options.configDirectory;
}

/// The options of a run, with what the script's "pc" says where the options say nothing.
PcOptions MergedOptions(PcOptions options, const Script& script) {
    const Fields settings = script.PcSettings();
    const auto take = [&](const char* name, std::optional<std::string>& option,
                          std::string& place) {
        const auto found = settings.find(name);
        if (!option && found != settings.end()) {
            option = found->second;
            place = script.PcPlace() + name + "=";
        }
    };
    take("route", options.route, options.routePlace);
    take("chip", options.chip, options.chipPlace);
    options.late = NumberOf(settings, "late", options.late);
    options.priorityChanges =
        static_cast<unsigned>(NumberOf(settings, "changes", options.priorityChanges));
    return options;
}

void WriteReport(Report& report, const RunOptions& options, const std::string& script,
                 const RunOutcome& outcome) {
    const PcOptions& merged = outcome.options;
    Json facts{{"script", ValidUtf8(script)},
               {"route", merged.route.value_or(outcome.pc->Parts().RouteName())},
               {"chip", outcome.pc->Parts().ChipName()},
               {"pcType", options.pcType},
               {"fault", ValidUtf8(merged.fault.value_or(""))},
               {"seed", merged.seed ? Json(std::to_string(*merged.seed)) : Json()},
               {"failures", outcome.player->Failures()}};
    report.AddTag(outcome.pc->TagMemory(), outcome.pc->Now(), "at the end", true);
    report.Write(std::move(facts), outcome.pc->Now());
}

}  // namespace

RunOutcome PlayRun(const RunOptions& options, std::optional<Script> given, RunWatch watching) {
    // Never destroyed, like pc and player: the library's threads may call them until the process
    // ends.
    static const RunWatch& watch = *new RunWatch(std::move(watching));
    static Judge* judge = nullptr;
    static Recorder& recorder = *new Recorder([](const Json& object) {
        watch.object(object);
        if (judge != nullptr) {
            judge->Take(object);
        }
    });
    const bool isDefault = !given;
    Script script = given ? std::move(*given) : Script{kVisitName, {}};
    const PcOptions merged = MergedOptions(options.pc, script);
    static Pc& pc = MakePc(merged, recorder);
    static Player& player =
        *new Player(pc, recorder, options.pc.seed.value_or(std::random_device{}()),
                    [](const Player::Step& step) {
                        watch.step(step);
                        if (judge != nullptr) {
                            judge->Watch(step);
                        }
                    });
    if (isDefault) {
        script = ParseScript(kVisitName, pc.Parts().DefaultScript());
    }
    player.Check(script);
    if (merged.check) {
        judge = new Judge(script, merged, pc, recorder);
    }
    const std::string configuration = ConfigurationOf(options, merged);
    if (!options.json && configuration != options.configDirectory) {
        auto file = std::filesystem::path(configuration) / "config" / "NfcUri.ini";
        WriteOutput("The URIs are those of " + Printable(file.make_preferred().string()) +
                    "; --config DIR chooses others.\n");
    }
    UseConfiguration(configuration, options.pcType);
    pc.CreateDevices();
    watch.tag(pc, "before the run");
    player.Start(options.pcType);
    watch.tag(pc, "after the first write");
    if (player.Failures() == 0 || !isDefault) {
        player.Play(script);
    }
    if (judge != nullptr) {
        judge->EndScript();
    }
    player.End();
    if (judge != nullptr) {
        judge->Finish();
    }
    recorder.Finish();
    return {&pc, &player, judge, merged};
}

int Run(const RunOptions& options) {
    const Style style = options.json ? Style(false) : Style::ForOutput();
    static const HumanOutput& human = *new HumanOutput(style, options.log, options.pc.bus);
    static const bool json = options.json;
    static LiveStory* const story = options.explain ? new LiveStory(style) : nullptr;
    static Report* const report = options.report ? new Report(*options.report) : nullptr;
    const std::optional<Script> script =
        options.script ? std::optional(ReadScript(*options.script)) : std::nullopt;
    const RunOutcome outcome = PlayRun(
        options, script,
        {[](const Json& object) {
             const std::string text = json || report != nullptr ? JsonOf(object) : std::string();
             WriteOutput(json ? text + "\n" : human.Lines(object));
             if (report != nullptr) {
                 report->AddObject(text);
             }
             if (story != nullptr) {
                 WriteOutput(story->Take(object));
             }
         },
         [](const Player::Step& step) {
             if (!json && step.begins && step.command.line > 0) {
                 WriteOutput(human.CommandLine(step.command.text));
             }
             if (report != nullptr) {
                 report->AddStep(step, step.pc.Now());
                 if (!step.begins) {
                     report->AddTag(step.pc.TagMemory(), step.pc.Now(),
                                    "after " + step.command.text);
                 }
             }
         },
         [](const Pc& pc, const char* moment) {
             if (report != nullptr) {
                 report->AddTag(pc.TagMemory(), pc.Now(), moment);
             }
         }});
    if (story != nullptr) {
        WriteOutput(story->End());
    }
    if (!options.json) {
        PrintTag(outcome.pc->TagMemory(), style);
        PrintSum(*outcome.player, options.explain, style);
    }
    if (report != nullptr) {
        WriteReport(*report, options, script ? script->file : kVisitName, outcome);
    }
    return outcome.IsGood() ? kExitDone : kExitFailed;
}

}  // namespace lab
