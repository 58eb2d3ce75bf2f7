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

#include "tests/support/Seeds.h"
#include "tests/system/soak/Judge.h"

namespace {

constexpr std::uint64_t kWorkers = 2;
constexpr unsigned kMostFailures = 5;
constexpr unsigned kRealSeconds = 60;        // for a loop that never reaches the layer
constexpr std::uint64_t kEnoughSeeds = 100;  // some of which are judged in their hour, surely

// What a worker has done. Plain, as workers and the stories' children leave it in shared memory.
struct Share {
    soak::Figures figures{};
    std::uint64_t played = 0;
    unsigned failures = 0;
    std::array<std::uint64_t, kMostFailures> failed{};
};

bool Fails(const soak::Story& story, std::uint64_t seed, soak::Figures& sum, bool quiet = true) {
    return testing_support::RunInChild([&] {
               alarm(kRealSeconds);
               if (quiet && (std::freopen("/dev/null", "w", stderr) == nullptr ||
                             std::freopen("/dev/null", "w", stdout) == nullptr)) {
                   std::abort();
               }
               const soak::Figures figures = soak::Play(story, seed);
               std::transform(sum.begin(), sum.end(), figures.begin(), sum.begin(), std::plus<>());
           }) != 0;
}

// Takes entries out, by halves down to single ones, as long as the story still fails.
void Shorten(soak::Story& story, std::uint64_t seed, soak::Section section) {
    soak::Figures unused{};
    for (std::size_t piece = story.sections[section].size(); piece > 0; piece /= 2) {
        for (std::size_t first = 0; first + 1 < story.sections[section].size();) {
            soak::Story shorter = story;
            auto& entries = shorter.sections[section];
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
    std::ofstream(file) << story.Text();
    std::printf(
        "seed %s fails; repeat with: scripts/soak --start %s --seeds 1\n"
        "or watch: tagport-lab run --log --seed %s --script %s\n%s",
        number.c_str(), number.c_str(), number.c_str(), file.c_str(), story.Text().c_str());
    soak::Figures unused{};
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
    soak::Figures sum{};
    unsigned failures = 0;
    for (const Share& share : shares) {
        std::transform(sum.begin(), sum.end(), share.figures.begin(), sum.begin(), std::plus<>());
        played += share.played;
        failures += share.failures;
        std::for_each_n(share.failed.begin(), share.failures, Report);
    }
    std::printf(
        "%llu seeds, %u failed: %.0f simulated hours, %.0f visits, %.0f numbers given, "
        "%.0f fault plans; judged: %.0f visits of the hours, %.0f numbers and %.0f URLs on "
        "the tag, %.0f visits after the hours; %.1f seeds a second\n",
        static_cast<unsigned long long>(played), failures, sum[soak::kHours], sum[soak::kVisits],
        sum[soak::kNumbers], sum[soak::kFaults], sum[soak::kHourVisits], sum[soak::kTags],
        sum[soak::kUrls], sum[soak::kLaterVisits], static_cast<double>(played) / took.count());
    if (played >= kEnoughSeeds && std::count(sum.begin() + soak::kHourVisits, sum.end(), 0.0) > 0) {
        std::printf("the run proves nothing: of one of the judged kinds above there was none\n");
        return 1;
    }
    return failures == 0 && played == options["--seeds"] ? 0 : 1;
}
