#include <array>

#include "lab/System.h"
#include "lab/help/Help.h"
#include "lab/help/ScriptHelp.h"

namespace lab {

namespace {

struct CommandExamples {
    const char* path;
    const char* text;  // pairs of lines: the call, and what it does
};

constexpr char kStatuses[] =
    "Exit status: 0 everything worked, 1 the system reported a failure, 2 wrong call.";

// Where every device is simulated.
constexpr char kTryIt[] =
    "  tagport-lab run\n"
    "      A phone visits a PC with a tag; no hardware is needed.\n";
// On a PC with devices of its own.
constexpr char kTryItThere[] =
    "  tagport-lab run --config C:\\host\n"
    "      Fills this PC's tag as the host in that directory would, and waits a minute for a "
    "phone.\n"
    "  tagport-lab run --route ble\n"
    "      A phone visits a simulated Bluetooth keyboard.\n";

constexpr CommandExamples kRunThere{
    "run",
    "  tagport-lab run --config C:\\host --log\n"
    "      This PC's tag for a minute, with every line of the log.\n"
    "  tagport-lab run --route ble --report visit.html\n"
    "      A simulated Bluetooth keyboard; the whole run as one page for a browser.\n"
    "  tagport-lab run --route ble --fault write#5 --explain\n"
    "      The fifth write of the client fails; the log is explained as it is written.\n"
    "  tagport-lab run --route ble --json | tagport-lab explain -\n"
    "      The log of a whole run in plain words."};

constexpr std::array<CommandExamples, 6> kExamples{{
    {"",
     "  tagport-lab explain customer.log\n"
     "      What happened in a log of the library, and what to do about it.\n"
     "  tagport-lab image show tag.bin\n"
     "      What a tag holds, byte by byte.\n"
     "  tagport-lab COMMAND --help\n"
     "      The options of a command, with examples."},
    {"run",
     "  tagport-lab run --route hid --log --bus\n"
     "      A keyboard on HID, with every line of the log and every frame.\n"
     "  tagport-lab run --seed 7\n"
     "      On the scheduled clock: no real time passes, and 7 repeats the same run.\n"
     "  tagport-lab run --seed 7 --report visit.html\n"
     "      The whole run as one page for a browser.\n"
     "  tagport-lab run --seed 7 --check --script my.lab\n"
     "      Judges visits, numbers, the tag and what is left over.\n"
     "  tagport-lab run --fault write#5=refuse:1117 --explain --seed 1\n"
     "      The fifth write of the driver fails; the log is explained as it is written.\n"
     "  printf 'tap 500\\nrenew random\\ntap\\n' | tagport-lab run --script - --seed 1\n"
     "      A script: two visits, and a new number between them.\n"
     "  tagport-lab run --json --seed 1 | tagport-lab explain -\n"
     "      The log of a whole run in plain words."},
    {"explain",
     "  tagport-lab explain customer.log\n"
     "      Each operation, visit and failure with the line of the log, then a summary.\n"
     "  tagport-lab explain --failures app.log.2 app.log.1 app.log\n"
     "      Only what failed, in several logs.\n"
     "  zcat old.log.gz | tagport-lab explain -\n"
     "      From a pipe; tail -n +1 -f app.log follows a log that grows.\n"
     "  tagport-lab explain --json customer.log\n"
     "      An object a line, for programs.\n"
     "\n"
     "The host's sink may write anything before each line: time, process, thread and level are\n"
     "found there. Lines of other programs are counted and left out."},
    {"image build",
     "  tagport-lab image build --pc-type 8 --format raw -o tag.bin\n"
     "      The image for PC type 8 as bytes in a file.\n"
     "  tagport-lab image build --url example.org/tap | tagport-lab image show -\n"
     "      An image with this URI, taken apart at once."},
    {"image show",
     "  tagport-lab image show tag.bin\n"
     "      Each byte with its offset, its register and its field.\n"
     "  xxd -p tag.bin | tagport-lab image show -\n"
     "      The same from hexadecimal digits."},
    {"completion",
     "  source <(tagport-lab completion bash)\n"
     "      Completion in this bash.\n"
     "  tagport-lab completion fish > ~/.config/fish/completions/tagport-lab.fish\n"
     "      Completion in every fish."},
}};

std::string ExamplesOf(const std::string& path) {
    if (path == kRunThere.path && HasOwnDevices()) {
        return kRunThere.text;
    }
    for (const CommandExamples& one : kExamples) {
        if (path == one.path) {
            return (path.empty() ? (HasOwnDevices() ? kTryItThere : kTryIt) : "") +
                   std::string(one.text);
        }
    }
    return {};
}

}  // namespace

std::string HelpFooter(const std::string& path) {
    std::string footer;
    for (const HelpSection& section : Grammar(path)) {
        footer += AsText(section) + "\n";
    }
    const std::string examples = ExamplesOf(path);
    footer += examples.empty() ? "" : "Examples:\n" + examples + "\n\n";
    return footer + kStatuses;
}

}  // namespace lab
