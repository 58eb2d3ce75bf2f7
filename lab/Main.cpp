// tagport-lab: runs the library against simulated devices, makes tag images and takes them apart.
// This file holds the command line only.
#include <tagport/Version.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <exception>
#include <functional>
#include <limits>
#include <sstream>
#include <string_view>

#include "lab/Embedded.h"
#include "lab/Failure.h"
#include "lab/Hex.h"
#include "lab/ImageCommand.h"
#include "lab/RunCommand.h"
#include "lab/System.h"
#include "lab/Terminal.h"
#include "lab/Words.h"
#include "lab/explain/ExplainCommand.h"
#include "lab/help/Help.h"
#include "simulator/PcKinds.h"
#include "tagimage/ImageGeometry.h"

namespace {

const std::vector<std::string> kPcTypes{"2", "5", "8"};

std::string FirstOf(const std::vector<std::string>& names) {
    return " (default " + names.front() + ")";
}

std::uint64_t ParseSeed(const std::string& text) {
    const auto seed = lab::WholeNumber<std::uint64_t>(text);
    lab::RefuseIf(!seed, "--seed " + text + ": a whole number from 0 to " +
                             std::to_string(std::numeric_limits<std::uint64_t>::max()) +
                             " is needed");
    return *seed;
}

void AddRun(CLI::App& app, lab::RunOptions& run) {
    const std::vector<std::string> routes = lab::NamesOf(simulator::kRouteKinds);
    const std::vector<std::string> chips = lab::NamesOf(simulator::kChipKinds);
    app.add_option("--route", run.pc.route,
                   lab::HasOwnDevices()
                       ? "Where the simulated tag is (default: the PC's own devices)"
                       : "Where the tag is" + FirstOf(routes))
        ->check(CLI::IsMember(routes));
    const auto onI2cOnly =
        lab::NamesOf(simulator::kChipKinds, std::mem_fn(&simulator::ChipKind::NeedsDetection));
    app.add_option("--chip", run.pc.chip,
                   "The tag's chip on i2c and usb" + FirstOf(chips) + "; " +
                       lab::Joined(onI2cOnly, " and ") + " on i2c only")
        ->check(CLI::IsMember(chips));
    app.add_option("--pc-type", run.pcType, "2, 5 or 8 (default 5)")
        ->check(CLI::IsMember(kPcTypes));
    app.add_option(
           "--config", run.configDirectory,
           "Directory that holds config/NfcUri.ini (default: the current one; where that has none "
           "and the tag is simulated, an example)")
        ->type_name("DIR");
    app.add_option("--script", run.script,
                   "File of commands to play, - for standard input; see Scripts below")
        ->type_name("FILE");
    app.add_option("--fault", run.pc.fault,
                   "Requests that fail, as in write#3=refuse:1117; see Faults below")
        ->type_name("PLAN");
    app.add_option_function<std::string>(
           "--seed", [&run](const std::string& text) { run.pc.seed = ParseSeed(text); },
           lab::HasOwnDevices()
               ? "With --route: choose the numbers that the host draws"
               : "Run scheduled: no real time passes, and the same seed repeats the run")
        ->type_name("N");
    auto* const json =
        app.add_flag("--json", run.json, "Print one JSON object per line, everything included");
    app.add_flag("--explain", run.explain, "Say what the log means while it is written")
        ->excludes(json);
    app.add_flag("--log", run.log, "Show every line of the log");
    app.add_option("--report", run.report, "Write the whole run as a page for a browser")
        ->type_name("FILE.html");
    app.add_flag("--bus", run.pc.bus, "Show every frame on the bus");
    auto* const check =
        app.add_flag("--check", run.pc.check,
                     "Judge visits, numbers, the tag and what is left over; needs --seed");
    if (lab::HasOwnDevices()) {
        check->group("");  // always refused there: not in the help
    }
}

void AddBuild(CLI::App& app, lab::ImageBuildOptions& build) {
    auto* const fields = app.add_option_group("source", "One of");
    fields->add_option(
        "--url", build.url,
        "URI text without https://, 0 to " + std::to_string(imageformat::kMaxUriSize) + " bytes");
    fields->add_option("--pc-type", build.pcType, "URL and model of PC type 2, 5 or 8")
        ->check(CLI::IsMember(kPcTypes));
    fields->require_option(1);
    fields->set_help_flag();  // the command has one
    const auto bytes = [&](const std::string& name, std::size_t size, auto& field) {
        app.add_option_function<std::string>(
            name,
            [&field, name, size](const std::string& digits) {
                field = lab::HexValue(digits, size, name);
            },
            std::to_string(size) + " bytes in hexadecimal (default: zero)");
    };
    bytes("--mac", imageformat::kMacSize, build.mac);
    bytes("--number", imageformat::kNumberSize, build.number);
    bytes("--model", imageformat::kModelSize, build.model);
    app.add_option("--config", build.configDirectory, "Directory that holds config/NfcUri.ini")
        ->type_name("DIR");
    app.add_option("-o,--output", build.output, "File, - for standard output (default)")
        ->type_name("FILE");
    app.add_option("--format", build.format, "hex (default) or raw")
        ->check(CLI::IsMember({"hex", "raw"}));
}

void AddShow(CLI::App& app, lab::ImageShowOptions& show) {
    app.add_option("FILE", show.file, "File, - for standard input")->required();
    app.add_option("--format", show.format, "hex, raw or auto (default)")
        ->check(CLI::IsMember({"hex", "raw", "auto"}));
}

void AddExplain(CLI::App& app, lab::ExplainOptions& explain) {
    app.add_option("LOG", explain.logs, "Logs of a host, oldest first, - for standard input")
        ->required();
    app.add_flag("--failures", explain.failures, "Only what failed, and the summary");
    app.add_flag("--json", explain.json, "Print one JSON object per line, the summary last");
}

// The word that the parser stopped at.
std::string Unexpected(const std::vector<std::string>& rest) {
    const auto option = std::find_if(rest.begin(), rest.end(),
                                     [](const std::string& word) { return word[0] == '-'; });
    return option != rest.end() ? *option : (rest.empty() ? "" : rest.front());
}

/// The parser's message in this program's words.
std::string Message(const CLI::ParseError& problem, const CLI::App& command) {
    const std::string text = problem.what();
    // What follows the option there, what is put before it, and what then follows it.
    constexpr std::array<const char*, 3> kReworded[] = {
        {": 1 required ", "", ": a value is missing"},
        {": At Most 1 required", "", ": it is given more than once"},
        {" was given a disallowed flag override", "--", ": it takes no value"}};
    for (const auto& [mark, dashes, meaning] : kReworded) {
        if (const std::size_t end = text.find(mark); end != std::string::npos) {
            return dashes + text.substr(0, end) + meaning;
        }
    }
    return text.find("subcommand is required") == std::string::npos
               ? text
               : "A command is required (" + lab::Joined(lab::WordsLike(command, "")) + ")";
}

/// The last command that the parser recognised; the program if it recognised none.
const CLI::App& LastCommand(const CLI::App& app) {
    const std::vector<CLI::App*> parsed = app.get_subcommands();
    return parsed.empty() ? app : LastCommand(*parsed.front());
}

/// Without the program's name: "image show "; empty for the program.
std::string PathOf(const CLI::App& command) {
    const CLI::App* const parent = command.get_parent();
    return parent == nullptr ? "" : PathOf(*parent) + command.get_name() + " ";
}

/// One line, with the call that shows what is possible.
int WrongCall(const std::string& problem, const CLI::App& app) {
    lab::PrintError(problem + " (see tagport-lab " + PathOf(LastCommand(app)) + "--help)");
    return lab::kExitWrongCall;
}

/// Commands have this name in the help as well, and a flag takes no value.
void AdaptParser(CLI::App& app) {
    const std::string path = PathOf(app);
    app.footer(lab::HelpFooter(path.substr(0, path.rfind(' '))));
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    for (CLI::Option* const option : app.get_options()) {
        if (option->get_expected_max() == 0) {
            option->disable_flag_override();  // "--log=no" would be no log
        }
    }
    for (CLI::App* const sub : app.get_subcommands([](CLI::App*) { return true; })) {
        if (!sub->get_name().empty()) {
            sub->group("Commands");
        }
        AdaptParser(*sub);
    }
}

int Main(int count, char** arguments) {
    lab::RunOptions run;
    lab::ImageBuildOptions build;
    lab::ImageShowOptions show;
    lab::ExplainOptions explain;

    CLI::App app(
        "Runs tagport against simulated devices, explains its log, and takes tag images apart.",
        "tagport-lab");
    app.set_version_flag("--version", "tagport-lab " TAGPORT_VERSION, "Print the version");
    app.require_subcommand(1);
    CLI::App& runApp = *app.add_subcommand("run", "Play a script, or a short visit of a phone");
    CLI::App& image = *app.add_subcommand("image", "Make a tag image or take one apart");
    image.require_subcommand(1);
    CLI::App& buildApp = *image.add_subcommand("build", "Make an image from its fields");
    CLI::App& showApp = *image.add_subcommand("show", "Take an image apart, byte by byte");
    CLI::App& explainApp = *app.add_subcommand("explain", "Say what a log means");
    AddRun(runApp, run);
    AddExplain(explainApp, explain);
    CLI::App& completionApp =
        *app.add_subcommand("completion", "Print a script that completes the program's words");
    std::string shell;
    completionApp.add_option("SHELL", shell, "The shell that is to read it")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}));
    AddBuild(buildApp, build);
    AddShow(showApp, show);
    AdaptParser(app);
    // The call of the completion scripts, which no person makes: not in the help.
    if (count > 1 && std::string_view(arguments[1]) == "complete-words") {
        lab::WriteOutput(lab::CompletedWords(app, {arguments + 2, arguments + count}));
        return lab::kExitDone;
    }
    try {
        app.parse(count, arguments);
        if (runApp.parsed()) {
            return lab::Run(run);
        }
        if (buildApp.parsed()) {
            return lab::BuildImage(build);
        }
        if (completionApp.parsed()) {
            lab::WriteOutput(lab::Embedded("completion." + shell));
            return lab::kExitDone;
        }
        if (explainApp.parsed()) {
            return lab::Explain(explain);
        }
        return lab::ShowImage(show);
    } catch (const CLI::ParseError& problem) {
        if (problem.get_exit_code() != static_cast<int>(CLI::ExitCodes::Success)) {
            // The parser's message does not contain the word in the subcommand's place.
            const std::vector<std::string> rest = app.remaining(true);
            const bool unknown = problem.get_name() == "RequiredError" && !rest.empty();
            const CLI::App& command = LastCommand(app);
            const std::string word = Unexpected(rest);
            const std::string typed = word.substr(0, word.find('='));
            return WrongCall(Message(problem, command) +
                                 (unknown ? ": \"" + rest.front() + "\" is unknown" : "") +
                                 lab::Suggestion(lab::WordsLike(command, word), typed),
                             app);
        }
        std::ostringstream help;
        app.exit(problem, help, help);
        lab::WriteOutput(help.str());
        return lab::kExitDone;
    } catch (const lab::WrongCall& problem) {
        return WrongCall(problem.what(), app);
    }
}

}  // namespace

int main(int count, char** arguments) {
    try {
        lab::PrepareStreams();
        return Main(count, arguments);
    } catch (const std::exception& problem) {
        lab::PrintError(problem.what());
        return lab::kExitFailed;
    }
}
