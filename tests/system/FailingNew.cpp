#include "tests/system/FailingNew.h"

#include <atomic>
#include <new>

namespace {

std::atomic<unsigned> g_seen{0};     // allocations since FailAllocation
std::atomic<unsigned> g_failing{0};  // the one that fails, from 1; 0 for none

bool Fails() {
    return ++g_seen == g_failing;
}

}  // namespace

namespace testing_support {

void FailAllocation(unsigned nth) {
    g_failing = nth;
    g_seen = 0;
}

unsigned AllocationsSeen() {
    return g_seen;
}

}  // namespace testing_support

// What they give is released by the ordinary operator delete, so it comes from the ordinary new.
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    try {
        return Fails() ? nullptr : ::operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    try {
        return Fails() ? nullptr : ::operator new[](size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
