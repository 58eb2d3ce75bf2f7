// The main function of every test program: says how to repeat a run that failed.
#include <gtest/gtest.h>

#include <cstdio>

#include "tests/support/Seeds.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    if (result != 0 && testing_support::SeedWasUsed()) {
        std::printf("repeat with: scripts/test --seed %llu\n",
                    static_cast<unsigned long long>(testing_support::Seed()));
    }
    return result;
}
