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

#include "lab/Failure.h"
#include "lab/HumanOutput.h"
#include "lab/RunCommand.h"
#include "lab/Words.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/SeededRuns.h"
#include "tests/system/soak/RandomScript.h"

namespace {

using Words = std::vector<std::string>;

constexpr std::uint64_t kWorkers = 2;
constexpr unsigned kMostFailures = 5;
constexpr unsigned kRealSeconds = 60;        // for a loop that never reaches the layer
constexpr std::uint64_t kEnoughSeeds = 100;  // of which some can be judged, surely
constexpr double kHourTime = 3'600'000;      // milliseconds

struct Figures {
    double hours = 0;
    std::size_t faults = 0;  // set and ended
    lab::JudgedFigures judged{};

    void Add(const Figures& more) {
        hours += more.hours;
        faults += more.faults;
        std::transform(judged.begin(), judged.end(), more.judged.begin(), judged.begin(),
                       std::plus<>());
    }
};

// What a worker has done. Plain, as workers and the stories' children leave it in shared memory.
struct Share {
    Figures figures;
    std::uint64_t played = 0;
    unsigned failures = 0;
    std::array<std::uint64_t, kMostFailures> failed{};
};

std::string Text(const Words& story) {
    return lab::Joined(story, "\n") + "\n";
}

// In this process, which must be fresh. What is found wrong goes to standard error.
bool IsGood(const Words& story, std::uint64_t seed, Figures& figures) {
    const lab::HumanOutput human(lab::Style(false), false, false);
    lab::RunOptions options;
    options.pc.seed = seed;
    options.pc.check = true;
    options.configDirectory = SOAK_TREE;
    const lab::RunOutcome run = lab::PlayRun(
        options, lab::ParseScript("story", Text(story)),
        {[&](const lab::Json& object) {
             if (object["kind"] == "log") {
                 testing_support::NoteLine(object["level"], object["line"]);
             }
             if (object["kind"] == "violation") {
                 std::fputs(human.Lines(object).c_str(), stderr);
             }
         },
         [&](const lab::Player::Step& step) {
             figures.faults += step.begins && step.command.verb == lab::Verb::kFault ? 1 : 0;
         },
         [](const lab::Pc& /*pc*/, const char* /*moment*/) {}});
    figures.hours = run.pc->Now() / kHourTime;
    figures.judged = run.judge->Judged();
    return run.judge->IsGood();
}

// Zero when it is good.
int Status(const Words& story, std::uint64_t seed, Figures& sum, bool quiet = true) {
    return testing_support::RunInChild([&] {
        alarm(kRealSeconds);
        if (quiet && std::freopen("/dev/null", "w", stderr) == nullptr) {
            std::abort();
        }
        Figures figures;
        try {
            if (!IsGood(story, seed, figures)) {
                std::_Exit(lab::kExitFailed);
            }
        } catch (const lab::WrongCall& problem) {
            std::fprintf(stderr, "%s\n", problem.what());
            std::_Exit(lab::kExitWrongCall);
        }
        sum.Add(figures);
    });
}

// Takes entries out, by halves down to single ones, as long as the story still fails.
void Shorten(Words& story, std::uint64_t seed) {
    Figures unused;
    for (std::size_t piece = story.size() / 2; piece > 0; piece /= 2) {
        for (std::size_t first = 0; first < story.size();) {
            Words shorter = story;
            const auto from = shorter.begin() + static_cast<std::ptrdiff_t>(first);
            shorter.erase(
                from, from + static_cast<std::ptrdiff_t>(std::min(piece, shorter.size() - first)));
            // Not where it has lost a line that another one needs.
            const int status = Status(shorter, seed, unused);
            if (status != 0 && WEXITSTATUS(status) != lab::kExitWrongCall) {
                story = shorter;
            } else {
                first += piece;
            }
        }
    }
}

void Report(std::uint64_t seed) {
    Words story = soak::Draw(seed);
    Shorten(story, seed);
    std::filesystem::create_directories(SOAK_SCRIPTS);
    const std::string number = std::to_string(seed);
    const std::string file = SOAK_SCRIPTS "/seed-" + number + ".lab";
    std::ofstream(file) << Text(story);
    std::printf(
        "seed %s fails; repeat with: scripts/soak --start %s --seeds 1\n"
        "or watch: tagport-lab run --check --log --seed %s --script %s\n%s",
        number.c_str(), number.c_str(), number.c_str(), file.c_str(), Text(story).c_str());
    Figures unused;
    Status(story, seed, unused, false);
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
    const std::uint64_t end = options["--start"] + options["--seeds"];
    auto& shares = testing_support::Shared<std::array<Share, kWorkers>>();
    const auto begin = std::chrono::steady_clock::now();
    for (std::uint64_t worker = 0; worker < kWorkers; ++worker) {
        if (fork() == 0) {
            Share& share = shares[worker];
            for (auto seed = options["--start"] + worker;
                 seed < end && share.failures < kMostFailures; seed += kWorkers, ++share.played) {
                if (Status(soak::Draw(seed), seed, share.figures) != 0) {
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
    Figures sum;
    unsigned failures = 0;
    for (const Share& share : shares) {
        sum.Add(share.figures);
        played += share.played;
        failures += share.failures;
        std::for_each_n(share.failed.begin(), share.failures, Report);
    }
    std::printf(
        "%llu seeds, %u failed: %.0f simulated hours, faults set or ended %zu times; judged: %s; "
        "%.1f seeds a second\n",
        static_cast<unsigned long long>(played), failures, sum.hours, sum.faults,
        lab::Text(sum.judged).c_str(), static_cast<double>(played) / took.count());
    if (played >= kEnoughSeeds && std::count(sum.judged.begin(), sum.judged.end(), 0U) > 0) {
        std::printf("the run proves nothing: of one of the judged kinds above there was none\n");
        return 1;
    }
    return failures == 0 && played == options["--seeds"] ? 0 : 1;
}
