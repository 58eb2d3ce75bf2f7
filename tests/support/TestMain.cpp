// The main function of every test program: says how to repeat a run that failed.
#include <gtest/gtest.h>

#include <iostream>

#include "tests/support/SeededRuns.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    if (result != 0) {
        std::cout << "repeat with: scripts/test --seed " << testing_support::Seed() << std::endl;
    }
    return result;
}
