#include "lab/RunCommand.h"

#include <cstdio>
#include <random>

#include "lab/ConfigCheck.h"
#include "lab/Failure.h"
#include "lab/HumanOutput.h"
#include "lab/ImageNotes.h"
#include "lab/ImageTable.h"
#include "lab/Player.h"
#include "lab/Script.h"
#include "lab/Terminal.h"

namespace lab {

namespace {

constexpr std::size_t kScriptLimit = 1 << 20;
constexpr char kVisitName[] = "visit";  // the script that is played when none is given
constexpr std::size_t kImageFrame = 3;  // bytes of an image that its length byte doesn't count

void Print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

/// False, with one line on standard error, when no message can be filled.
bool ConfigServes(const RunOptions& options) {
    const ConfigReport report = CheckConfig(options.configDirectory, options.pcType);
    UseConfigDirectory(options.configDirectory);
    if (report.error) {
        std::fprintf(stderr, "tagport-lab: %s\n", report.error->c_str());
        return false;
    }
    if (report.warning) {
        std::fprintf(stderr, "tagport-lab: warning: %s\n", report.warning->c_str());
    }
    return true;
}

void PrintTag(const std::string& memory, const Style& style) {
    if (memory.size() < kImageFrame) {
        return;
    }
    const std::size_t size = static_cast<unsigned char>(memory[1]) + kImageFrame;
    const std::string image = memory.substr(0, size);
    const ImageNotes notes = AnnotateImage(image);
    std::string text =
        "\n" + style.Bold("The tag at the end:") + "\n" + ImageTable(image, notes, style);
    if (notes.fault) {
        text += style.Red("no good image") + ": offset " + std::to_string(notes.fault->offset) +
                ": " + notes.fault->check + "\n";
    }
    Print(text);
}

void PrintSum(const Player& player, const Style& style) {
    std::string text = "\nevents: ";
    for (const int event : {3, 1, 4}) {
        text += std::to_string(player.Events().Count(event)) + " of " + std::to_string(event) +
                (event == 4 ? ".  " : ", ");
    }
    Print(text +
          (player.Failures() == 0 ? style.Green("Everything worked.")
                                  : style.Red(std::to_string(player.Failures()) + " failed.")) +
          "\n");
}

}  // namespace

int Run(const RunOptions& options) {
    const Style style = options.json ? Style(false) : Style::ForOutput();
    // Never destroyed, like stage and player: the library's threads may tell them something until
    // the process ends.
    static const HumanOutput& human = *new HumanOutput(style, options.log, options.stage.bus);
    static const bool json = options.json;
    static Recorder& recorder = *new Recorder([](const Json& object) {
        Print(json ? object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n"
                   : human.Lines(object));
    });
    Stage& stage = MakeStage(options.stage, recorder);
    static Player& player =
        *new Player(stage, recorder, options.stage.seed.value_or(std::random_device{}()),
                    [](const std::string& text) {
                        if (!json) {
                            Print(human.CommandLine(text));
                        }
                    });
    const Script script =
        options.script ? ParseScript(*options.script == "-" ? "standard input" : *options.script,
                                     ReadWhole(*options.script, kScriptLimit))
                       : ParseScript(kVisitName, stage.DefaultScript());
    player.Check(script);

    stage.ChooseClock();
    if (!ConfigServes(options)) {
        return kExitFailed;
    }
    stage.CreateDevices();
    player.Start(options.pcType);
    if (player.Failures() == 0 || options.script) {
        player.Play(script);
    }
    player.End();
    recorder.Finish();
    if (!options.json) {
        PrintTag(stage.TagMemory(), style);
        PrintSum(player, style);
    }
    return player.Failures() == 0 ? kExitDone : kExitFailed;
}

}  // namespace lab
