// Plays many seeds, each in a child process, two at a time, and shortens what fails.
//
// usage: soak [--seeds N] [--start S]
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>

#include "tests/system/soak/Story.h"

namespace {

constexpr unsigned kWorkers = 2;
constexpr unsigned kMostFailures = 5;
constexpr unsigned kRealSeconds = 60;  // for a loop that never reaches the layer

pid_t Begin(const soak::Story& story, soak::Figures* figures, bool quiet) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child != 0) {
        return child;
    }
    alarm(kRealSeconds);
    if (quiet) {
        const int nowhere = open("/dev/null", O_WRONLY);
        dup2(nowhere, STDERR_FILENO);
        dup2(nowhere, STDOUT_FILENO);
    }
    const soak::Figures played = soak::Play(story);
    figures->time += played.time;
    figures->visits += played.visits;
    figures->writes += played.writes;
    figures->faults += played.faults;
    std::_Exit(0);
}

bool Fails(const soak::Story& story, bool quiet = true) {
    soak::Figures unused;
    int status = 0;
    waitpid(Begin(story, &unused, quiet), &status, 0);
    return status != 0;
}

// Takes operations out, by halves down to single ones, as long as the story still fails.
soak::Story Shorten(soak::Story story) {
    for (std::size_t piece = story.operations.size() / 2; piece > 0; piece /= 2) {
        for (std::size_t first = 0; first < story.operations.size();) {
            soak::Story shorter = story;
            const auto from = shorter.operations.begin() + static_cast<std::ptrdiff_t>(first);
            const std::size_t count = std::min(piece, story.operations.size() - first);
            shorter.operations.erase(from, from + static_cast<std::ptrdiff_t>(count));
            if (Fails(shorter)) {
                story = shorter;
            } else {
                first += piece;
            }
        }
    }
    return story;
}

void Report(std::uint64_t seed) {
    const soak::Story shortest = Shorten(soak::Draw(seed));
    std::printf("seed %llu fails; repeat with: scripts/soak --start %llu --seeds 1\n%s",
                static_cast<unsigned long long>(seed), static_cast<unsigned long long>(seed),
                soak::Describe(shortest).c_str());
    Fails(shortest, false);
}

std::uint64_t Number(const char* text) {
    char* end = nullptr;
    const std::uint64_t number = std::strtoull(text, &end, 10);
    if (*text == '\0' || *end != '\0') {
        std::fprintf(stderr, "soak: \"%s\" is no number\n", text);
        std::exit(2);
    }
    return number;
}

}  // namespace

int main(int argc, char** argv) {
    std::uint64_t seeds = 100;
    std::uint64_t start = 1;
    for (int i = 1; i < argc; i += 2) {
        if (i + 1 < argc && std::strcmp(argv[i], "--seeds") == 0) {
            seeds = Number(argv[i + 1]);
        } else if (i + 1 < argc && std::strcmp(argv[i], "--start") == 0) {
            start = Number(argv[i + 1]);
        } else {
            std::fprintf(stderr, "usage: soak [--seeds N] [--start S]\n");
            return 2;
        }
    }
    // One for each worker, so that two children never add to the same.
    void* const memory = mmap(nullptr, kWorkers * sizeof(soak::Figures), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto* const figures = new (memory) soak::Figures[kWorkers];
    struct Running {
        std::uint64_t seed;
        unsigned worker;
    };
    std::map<pid_t, Running> running;
    std::vector<std::uint64_t> failed;
    const auto begin = std::chrono::steady_clock::now();
    std::uint64_t played = 0;
    std::uint64_t next = start;
    const auto launch = [&](unsigned worker) {
        if (next < start + seeds && failed.size() < kMostFailures) {
            const std::uint64_t seed = next++;
            running[Begin(soak::Draw(seed), &figures[worker], true)] = {seed, worker};
        }
    };
    for (unsigned worker = 0; worker < kWorkers; ++worker) {
        launch(worker);
    }
    while (!running.empty()) {
        int status = 0;
        const Running ended = running.at(wait(&status));
        for (auto it = running.begin(); it != running.end(); ++it) {
            if (it->second.worker == ended.worker) {
                running.erase(it);
                break;
            }
        }
        ++played;
        if (status != 0) {
            failed.push_back(ended.seed);
        }
        launch(ended.worker);
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    soak::Figures sum;
    for (unsigned worker = 0; worker < kWorkers; ++worker) {
        sum.time += figures[worker].time;
        sum.visits += figures[worker].visits;
        sum.writes += figures[worker].writes;
        sum.faults += figures[worker].faults;
    }
    for (const std::uint64_t seed : failed) {
        Report(seed);
    }
    std::printf(
        "%llu seeds, %zu failed: %.0f simulated hours, %zu visits, %zu writes, %zu faults; "
        "%.1f seeds a second\n",
        static_cast<unsigned long long>(played), failed.size(),
        static_cast<double>(sum.time) / static_cast<double>(soak::kHour), sum.visits, sum.writes,
        sum.faults, static_cast<double>(played) / took.count());
    return failed.empty() ? 0 : 1;
}
