#include "lab/System.h"
#include "lab/help/Help.h"
#include "lab/help/ScriptHelp.h"

namespace lab {

namespace {

enum class Shown { kAlways, kWhereAllIsSimulated, kOnPcWithDevices };

// Of a command: calls, and under each what it does. Several of one command follow each other.
constexpr struct {
    const char* path;
    Shown shown;
    const char* text;
} kExamples[] = {
    {"", Shown::kWhereAllIsSimulated, R"(  tagport-lab run
      A phone visits a PC with a tag; no hardware is needed.
)"},
    {"", Shown::kOnPcWithDevices, R"(  tagport-lab run --config C:\host
      Fills this PC's tag as the host in that directory would, and waits a minute for a phone.
  tagport-lab run --route ble
      A phone visits a simulated Bluetooth keyboard.
)"},
    {"", Shown::kAlways, R"(  tagport-lab explain customer.log
      What happened in a log of the library, and what to do about it.
  tagport-lab image show tag.bin
      What a tag holds, byte by byte.
  tagport-lab COMMAND --help
      The options of a command, with examples.
)"},
    {"run", Shown::kWhereAllIsSimulated, R"(  tagport-lab run --route hid --log --bus
      A keyboard on HID, with every line of the log and every frame.
  tagport-lab run --seed 7
      On the scheduled clock: no real time passes, and 7 repeats the same run.
  tagport-lab run --seed 7 --report visit.html
      The whole run as one page for a browser.
  tagport-lab run --seed 7 --check --script my.lab
      Judges visits, numbers, the tag and what is left over.
  tagport-lab run --fault write#5=refuse:1117 --explain --seed 1
      The fifth write of the driver fails; the log is explained as it is written.
  printf 'tap 500\nrenew random\ntap\n' | tagport-lab run --script - --seed 1
      A script: two visits, and a new number between them.
  tagport-lab run --json --seed 1 | tagport-lab explain -
      The log of a whole run in plain words.
)"},
    {"run", Shown::kOnPcWithDevices, R"(  tagport-lab run --config C:\host --log
      This PC's tag for a minute, with every line of the log.
  tagport-lab run --route ble --report visit.html
      A simulated Bluetooth keyboard; the whole run as one page for a browser.
  tagport-lab run --route ble --fault write#5 --explain
      The fifth write of the client fails; the log is explained as it is written.
  tagport-lab run --route ble --json | tagport-lab explain -
      The log of a whole run in plain words.
)"},
    {"explain", Shown::kAlways, R"(  tagport-lab explain customer.log
      Each operation, visit and failure with the line of the log, then a summary.
  tagport-lab explain --failures app.log.2 app.log.1 app.log
      Only what failed, in several logs.
  zcat old.log.gz | tagport-lab explain -
      From a pipe; tail -n +1 -f app.log follows a log that grows.
  tagport-lab explain --json customer.log
      An object a line, for programs.

The host's sink may write anything before each line: time, process, thread and level are
found there. Lines of other programs are counted and left out.
)"},
    {"image build", Shown::kAlways, R"(  tagport-lab image build --pc-type 8 --format raw -o tag.bin
      The image for PC type 8 as bytes in a file.
  tagport-lab image build --url example.org/tap | tagport-lab image show -
      An image with this URI, taken apart at once.
)"},
    {"image show", Shown::kAlways, R"(  tagport-lab image show tag.bin
      Each byte with its offset, its register and its field.
  xxd -p tag.bin | tagport-lab image show -
      The same from hexadecimal digits.
)"},
    {"completion", Shown::kAlways, R"(  source <(tagport-lab completion bash)
      Completion in this bash.
  tagport-lab completion fish > ~/.config/fish/completions/tagport-lab.fish
      Completion in every fish.
)"},
};

}  // namespace

std::string HelpFooter(const std::string& path) {
    std::string footer;
    for (const HelpSection& section : Grammar(path)) {
        footer += AsText(section) + "\n";
    }
    const Shown here = HasOwnDevices() ? Shown::kOnPcWithDevices : Shown::kWhereAllIsSimulated;
    std::string examples;
    for (const auto& [of, shown, text] : kExamples) {
        examples += path == of && (shown == Shown::kAlways || shown == here) ? text : "";
    }
    return footer + (examples.empty() ? "" : "Examples:\n" + examples + "\n") +
           "Exit status: 0 everything worked, 1 the system reported a failure, 2 wrong call.";
}

}  // namespace lab
