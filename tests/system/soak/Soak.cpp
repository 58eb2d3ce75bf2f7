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
#include <map>
#include <sstream>

#include "lab/ConfigCheck.h"
#include "lab/Player.h"
#include "lab/RunCommand.h"
#include "platform/hosted/Kernel.h"
#include "tests/support/Seeds.h"
#include "tests/system/soak/Judge.h"

namespace {

constexpr std::uint64_t kWorkers = 2;
constexpr unsigned kMostFailures = 5;
constexpr unsigned kRealSeconds = 60;        // for a loop that never reaches the layer
constexpr std::uint64_t kEnoughSeeds = 100;  // some of which are judged in their hour, surely
constexpr int kPcType = 5;

// What a worker has done. Plain, as workers and the stories' children leave it in shared memory.
struct Share {
    soak::Figures figures;
    std::uint64_t played = 0;
    unsigned failures = 0;
    std::array<std::uint64_t, kMostFailures> failed{};
};

// In this process, which must be fresh, as `tagport-lab run` does it.
soak::Figures Play(const soak::Story& story, std::uint64_t seed) {
    const lab::Script script = lab::ParseScript("story", story.Text());
    soak::Judge* judge = nullptr;
    lab::Recorder recorder([&](const lab::Json& object) { judge->Take(object); });
    lab::StageOptions options;
    options.seed = seed;
    lab::Stage& stage = lab::MakeStage(lab::MergedOptions(options, script), recorder);
    soak::Judge theJudge(story, stage);
    judge = &theJudge;
    lab::Player player(stage, recorder, seed,
                       [&](const lab::Player::Step& step) { judge->Watch(step); });
    player.Check(script);
    stage.ChooseClock();
    hosted::SetStallHandler([&](const std::string& report) {
        std::fputs(report.c_str(), stderr);
        judge->Fail("nobody can go on");
    });
    lab::UseConfigDirectory(SOAK_TREE);
    stage.CreateDevices();
    player.Start(kPcType);
    player.Play(script);
    return judge->Finish();
}

bool Fails(const soak::Story& story, std::uint64_t seed, soak::Figures& sum, bool quiet = true) {
    return testing_support::RunInChild([&] {
               alarm(kRealSeconds);
               if (quiet && (std::freopen("/dev/null", "w", stderr) == nullptr ||
                             std::freopen("/dev/null", "w", stdout) == nullptr)) {
                   std::abort();
               }
               sum += Play(story, seed);
               std::_Exit(0);  // threads may still use what this function has made
           }) != 0;
}

// Takes entries out, by halves down to single ones, as long as the story still fails.
void Shorten(soak::Story& story, std::uint64_t seed, soak::Section section) {
    soak::Figures unused;
    for (std::size_t piece = story.sections[section].size(); piece > 0; piece /= 2) {
        for (std::size_t first = 0; first < story.sections[section].size();) {
            soak::Story shorter = story;
            auto& entries = shorter.sections[section];
            const auto from = entries.begin() + static_cast<std::ptrdiff_t>(first);
            entries.erase(
                from, from + static_cast<std::ptrdiff_t>(std::min(piece, entries.size() - first)));
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
    std::ofstream(file) << story.Text();
    std::printf(
        "seed %s fails; repeat with: scripts/soak --start %s --seeds 1\n"
        "or watch: tagport-lab run --log --seed %s --script %s\n%s",
        number.c_str(), number.c_str(), number.c_str(), file.c_str(), story.Text().c_str());
    soak::Figures unused;
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
    Share sum;
    for (const Share& share : shares) {
        sum.figures += share.figures;
        sum.played += share.played;
        sum.failures += share.failures;
        std::for_each_n(share.failed.begin(), share.failures, Report);
    }
    const soak::Figures& figures = sum.figures;
    std::printf(
        "%llu seeds, %u failed: %.0f simulated hours, %zu visits, %zu numbers given, "
        "%zu faults; judged: %zu visits of the hours, %zu numbers and %zu URLs on the tag, "
        "%zu visits after the hours; %.1f seeds a second\n",
        static_cast<unsigned long long>(sum.played), sum.failures, figures.hours, figures.visits,
        figures.writes, figures.faults, figures.hourVisits, figures.tags, figures.contents,
        figures.roundsVisits, static_cast<double>(sum.played) / took.count());
    if (sum.played >= kEnoughSeeds && (figures.hourVisits == 0 || figures.tags == 0 ||
                                       figures.contents == 0 || figures.roundsVisits == 0)) {
        std::printf("the run proves nothing: of one of the judged kinds above there was none\n");
        return 1;
    }
    return sum.failures == 0 && sum.played == options["--seeds"] ? 0 : 1;
}
