// A process for each seed: the scheduled clock cannot be started twice in one.
#include "tests/support/SeededRuns.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

#ifdef __SANITIZE_ADDRESS__  // g++; clang++ makes the fuzzers, which have a check of their own
#include <sanitizer/lsan_interface.h>
#endif

#ifdef TAGPORT_COVERAGE
extern "C" void __gcov_dump();
#endif

namespace testing_support {

namespace {

// One broken seed tells what a hundred do; the rest of them only hide it.
constexpr unsigned kMostFailures = 3;

constexpr int kBodyFailed = 1;

// Some ten seconds: a body that waits for good while another thread polls ends with a report.
constexpr std::uint64_t kMostSteps = 20'000'000;

// Only one thread of a scheduled run is awake at a time, and handing over to a thread on another
// core costs more than all else.
void StayOnThisCore() {
    cpu_set_t core;
    CPU_ZERO(&core);
    CPU_SET(static_cast<unsigned>(sched_getcpu()), &core);
    sched_setaffinity(0, sizeof(core), &core);
}

// Failed checks of the running test so far, which are all the parts that its result has. A child
// inherits those of the children before it.
int FailedChecks() {
    const auto* const info = ::testing::UnitTest::GetInstance()->current_test_info();
    return info == nullptr ? 0 : info->result()->total_part_count();
}

// A process for each seed is ten times as dear under a sanitizer, which looks for other faults than
// the many orders do: the environment's TAGPORT_SEED_PERCENT takes that share of the seeds.
unsigned ShareOf(unsigned count) {
    const char* const percent = std::getenv("TAGPORT_SEED_PERCENT");
    return percent == nullptr ? count : 1 + count * static_cast<unsigned>(std::atoi(percent)) / 100;
}

}  // namespace

std::uint64_t Seed() {
    const char* const text = std::getenv("TAGPORT_SEED");
    return text == nullptr ? 1 : std::strtoull(text, nullptr, 10);
}

OneSeed::OneSeed() {
    if (!staysOnRealClock && !emulation::IsScheduled()) {
        emulation::UseScheduledClock({Seed()});
    }
}

int RunInChild(const std::function<void()>& body) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const int before = FailedChecks();
        body();
        std::fflush(nullptr);
#ifdef TAGPORT_COVERAGE
        __gcov_dump();  // what an exit would do
#endif
        // Threads may still be parked, and what the parent made is not the child's to destroy.
        std::_Exit(FailedChecks() != before ? kBodyFailed : 0);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

bool HasLeaked() {
#ifdef __SANITIZE_ADDRESS__
    return __lsan_do_recoverable_leak_check() != 0;
#else
    return false;
#endif
}

void ForEachSeed(unsigned count, const std::function<void()>& body,
                 const emulation::ScheduledOptions& options) {
    unsigned failures = 0;
    emulation::ScheduledOptions own = options;
    own.maxSteps = std::min(own.maxSteps, kMostSteps);
    const std::uint64_t end = Seed() + ShareOf(count);
    for (own.seed = Seed(); own.seed < end && failures < kMostFailures; ++own.seed) {
        const int status = RunInChild([&] {
            StayOnThisCore();
            emulation::UseScheduledClock(own);
            body();
        });
        if (status != 0) {
            ++failures;
            const bool stalled = WIFEXITED(status) && WEXITSTATUS(status) == emulation::kStallExit;
            ADD_FAILURE() << "seed " << own.seed << (stalled ? " stalled" : " failed")
                          << " (status " << status << ")";
        }
    }
}

}  // namespace testing_support
