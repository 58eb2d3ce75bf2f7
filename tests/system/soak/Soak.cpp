// Plays many seeds, each in a child process, two at a time, and shortens what fails.
//
// usage: soak [--seeds N] [--start S]
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>

#include "lab/ConfigCheck.h"
#include "lab/HumanOutput.h"
#include "lab/Judge.h"
#include "lab/Player.h"
#include "lab/RunCommand.h"
#include "tests/support/Seeds.h"
#include "tests/system/soak/Story.h"

namespace {

constexpr std::uint64_t kWorkers = 2;
constexpr unsigned kMostFailures = 5;
constexpr unsigned kRealSeconds = 60;        // for a loop that never reaches the layer
constexpr std::uint64_t kEnoughSeeds = 100;  // of which some can be judged, surely
constexpr double kHourTime = 3'600'000;      // milliseconds
constexpr int kPcType = 5;

// What happened, for the summary; from kJudgedVisits on what was judged.
enum Figure {
    kHours,
    kVisits,
    kNumbers,
    kFaults,
    kJudgedVisits,
    kInTime,
    kPhones,
    kTags,
    kFields,
    kShown,
    kFigures
};
using Figures = std::array<double, kFigures>;

// What a worker has done. Plain, as workers and the stories' children leave it in shared memory.
struct Share {
    Figures figures{};
    std::uint64_t played = 0;
    unsigned failures = 0;
    std::array<std::uint64_t, kMostFailures> failed{};
};

// In this process, which must be fresh, as `tagport-lab run --check` does it. What is found wrong
// goes to standard error.
bool IsGood(const soak::Story& story, std::uint64_t seed, Figures& sum) {
    const lab::Script script = lab::ParseScript("story", soak::Text(story));
    const lab::HumanOutput human(lab::Style(false), false, false);
    lab::Judge* judge = nullptr;
    lab::Recorder recorder([&](const lab::Json& object) {
        sum[kVisits] += object["kind"] == "event" && object["event"] == 3 ? 1 : 0;
        if (object["kind"] == "violation") {
            std::fputs(human.Lines(object).c_str(), stderr);
        }
        judge->Take(object);
    });
    lab::StageOptions options;
    options.seed = seed;
    options = lab::MergedOptions(options, script);
    lab::Stage& stage = lab::MakeStage(options, recorder);
    lab::Judge theJudge(script, options, stage, recorder);
    judge = &theJudge;
    lab::Player player(stage, recorder, seed, [&](const lab::Player::Step& step) {
        const lab::Command& command = step.command;
        sum[kFaults] +=
            step.begins && command.verb == lab::Verb::kFault && command.argument != "none";
        sum[kNumbers] += step.succeeded &&
                         (command.verb == lab::Verb::kRenew || command.fields.count("number") > 0);
        judge->Watch(step);
    });
    player.Check(script);
    stage.ChooseClock();
    lab::UseConfiguration(SOAK_TREE, kPcType);
    stage.CreateDevices();
    player.Start(kPcType);
    player.Play(script);
    player.End();
    judge->Finish();
    const lab::JudgedFigures& judged = judge->Judged();
    sum[kHours] += stage.Now() / kHourTime;
    sum[kJudgedVisits] += static_cast<double>(judged.visits);
    sum[kInTime] += static_cast<double>(judged.inTime);
    sum[kPhones] += static_cast<double>(judged.phones);
    sum[kTags] += static_cast<double>(judged.numbers);
    sum[kFields] += static_cast<double>(judged.fields);
    sum[kShown] += static_cast<double>(judged.shown);
    return judge->IsGood();
}

bool Fails(const soak::Story& story, std::uint64_t seed, Figures& sum, bool quiet = true) {
    return testing_support::RunInChild([&] {
               alarm(kRealSeconds);
               if (quiet && (std::freopen("/dev/null", "w", stderr) == nullptr ||
                             std::freopen("/dev/null", "w", stdout) == nullptr)) {
                   std::abort();
               }
               Figures figures{};
               if (!IsGood(story, seed, figures)) {
                   std::_Exit(1);
               }
               std::transform(sum.begin(), sum.end(), figures.begin(), sum.begin(), std::plus<>());
           }) != 0;
}

// Takes entries out, by halves down to single ones, as long as the story still fails.
void Shorten(soak::Story& story, std::uint64_t seed, soak::Section section) {
    Figures unused{};
    for (std::size_t piece = story[section].size(); piece > 0; piece /= 2) {
        for (std::size_t first = 0; first + 1 < story[section].size();) {
            soak::Story shorter = story;
            auto& entries = shorter[section];
            const auto from = entries.begin() + static_cast<std::ptrdiff_t>(first);
            entries.erase(from, from + static_cast<std::ptrdiff_t>(
                                           std::min(piece, entries.size() - 1 - first)));
            if (Fails(shorter, seed, unused)) {
                story = shorter;
            } else {
                first += piece;
            }
        }
    }
}

void Report(std::uint64_t seed) {
    soak::Story story = soak::Draw(seed);
    Shorten(story, seed, soak::kHour);
    Shorten(story, seed, soak::kRounds);
    std::filesystem::create_directories(SOAK_SCRIPTS);
    const std::string number = std::to_string(seed);
    const std::string file = SOAK_SCRIPTS "/seed-" + number + ".lab";
    std::ofstream(file) << soak::Text(story);
    std::printf(
        "seed %s fails; repeat with: scripts/soak --start %s --seeds 1\n"
        "or watch: tagport-lab run --check --log --seed %s --script %s\n%s",
        number.c_str(), number.c_str(), number.c_str(), file.c_str(), soak::Text(story).c_str());
    Figures unused{};
    Fails(story, seed, unused, false);
}

}  // namespace

int main(int argc, char** argv) {
    std::map<std::string, std::uint64_t> options{{"--seeds", 100}, {"--start", 1}};
    for (int i = 1; i < argc; i += 2) {
        const auto option = options.find(argv[i]);
        std::istringstream number(i + 1 < argc ? argv[i + 1] : "");
        if (option == options.end() || !(number >> option->second) || !number.eof()) {
            std::fprintf(stderr, "usage: soak [--seeds N] [--start S]\n");
            return 2;
        }
    }
    const std::uint64_t start = options["--start"];
    const std::uint64_t end = start + options["--seeds"];
    auto& shares = testing_support::Shared<std::array<Share, kWorkers>>();
    const auto begin = std::chrono::steady_clock::now();
    for (std::uint64_t worker = 0; worker < kWorkers; ++worker) {
        if (fork() == 0) {
            Share& share = shares[worker];
            for (auto seed = start + worker; seed < end && share.failures < kMostFailures;
                 seed += kWorkers, ++share.played) {
                if (Fails(soak::Draw(seed), seed, share.figures)) {
                    share.failed[share.failures++] = seed;
                }
            }
            std::_Exit(0);
        }
    }
    while (wait(nullptr) > 0) {
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    std::uint64_t played = 0;
    Figures sum{};
    unsigned failures = 0;
    for (const Share& share : shares) {
        std::transform(sum.begin(), sum.end(), share.figures.begin(), sum.begin(), std::plus<>());
        played += share.played;
        failures += share.failures;
        std::for_each_n(share.failed.begin(), share.failures, Report);
    }
    std::printf(
        "%llu seeds, %u failed: %.0f simulated hours, %.0f visits, %.0f numbers given, "
        "%.0f fault plans; judged: %.0f visits, %.0f of them with their times, %.0f readings of "
        "phones, %.0f numbers and %.0f times the other fields on the tag, %.0f numbers in events; "
        "%.1f seeds a second\n",
        static_cast<unsigned long long>(played), failures, sum[kHours], sum[kVisits], sum[kNumbers],
        sum[kFaults], sum[kJudgedVisits], sum[kInTime], sum[kPhones], sum[kTags], sum[kFields],
        sum[kShown], static_cast<double>(played) / took.count());
    if (played >= kEnoughSeeds && std::count(sum.begin() + kJudgedVisits, sum.end(), 0.0) > 0) {
        std::printf("the run proves nothing: of one of the judged kinds above there was none\n");
        return 1;
    }
    return failures == 0 && played == options["--seeds"] ? 0 : 1;
}
