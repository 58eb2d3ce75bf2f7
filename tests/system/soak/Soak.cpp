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
#include <map>
#include <sstream>
#include <vector>

#include "tests/support/Seeds.h"
#include "tests/system/soak/Story.h"

namespace {

constexpr std::uint64_t kWorkers = 2;
constexpr unsigned kMostFailures = 5;
constexpr unsigned kRealSeconds = 60;        // for a loop that never reaches the layer
constexpr std::uint64_t kEnoughSeeds = 100;  // some of which are judged in their hour, surely

// What a worker has done. Plain, as workers and the stories' children leave it in shared memory.
struct Share {
    soak::Figures figures;
    std::uint64_t played = 0;
    unsigned failures = 0;
    std::array<std::uint64_t, kMostFailures> failed{};
};

bool Fails(const soak::Story& story, soak::Figures& sum, bool quiet = true) {
    return testing_support::RunInChild([&] {
               alarm(kRealSeconds);
               if (quiet && (std::freopen("/dev/null", "w", stderr) == nullptr ||
                             std::freopen("/dev/null", "w", stdout) == nullptr)) {
                   std::abort();
               }
               sum += soak::Play(story);
           }) != 0;
}

// Takes operations out, by halves down to single ones, as long as the story still fails.
soak::Story Shorten(soak::Story story, std::vector<soak::Operation> soak::Story::*list) {
    soak::Figures unused;
    for (std::size_t piece = (story.*list).size(); piece > 0; piece /= 2) {
        for (std::size_t first = 0; first < (story.*list).size();) {
            soak::Story shorter = story;
            const auto from = (shorter.*list).begin() + static_cast<std::ptrdiff_t>(first);
            const std::size_t count = std::min(piece, (story.*list).size() - first);
            (shorter.*list).erase(from, from + static_cast<std::ptrdiff_t>(count));
            if (Fails(shorter, unused)) {
                story = shorter;
            } else {
                first += piece;
            }
        }
    }
    return story;
}

void Report(std::uint64_t seed) {
    const soak::Story shortest =
        Shorten(Shorten(soak::Draw(seed), &soak::Story::operations), &soak::Story::rounds);
    const std::string number = std::to_string(seed);
    std::printf("seed %s fails; repeat with: scripts/soak --start %s --seeds 1\n%s", number.c_str(),
                number.c_str(), soak::Describe(shortest).c_str());
    soak::Figures unused;
    Fails(shortest, unused, false);
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
                if (Fails(soak::Draw(seed), share.figures)) {
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
        "%llu seeds, %u failed: %.0f simulated hours, %zu visits, %zu writes, %zu faults; "
        "judged: %zu visits and %zu tags in the hours, %zu visits behind them; "
        "%.1f seeds a second\n",
        static_cast<unsigned long long>(sum.played), sum.failures,
        static_cast<double>(figures.time) / static_cast<double>(soak::kHour), figures.visits,
        figures.writes, figures.faults, figures.judgedVisits, figures.judgedTags,
        figures.settledVisits, static_cast<double>(sum.played) / took.count());
    if (sum.played >= kEnoughSeeds &&
        (figures.judgedVisits == 0 || figures.judgedTags == 0 || figures.settledVisits == 0)) {
        std::printf("the run proves nothing: of one of the judged kinds above there was none\n");
        return 1;
    }
    return sum.failures == 0 && sum.played == options["--seeds"] ? 0 : 1;
}
