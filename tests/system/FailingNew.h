// Memory that is not to be had: the program's operator new(std::nothrow) fails on demand. The
// throwing one stays as it is.
#pragma once

namespace testing_support {

/// The `nth` allocation without throwing from now on fails, from 1; none with 0. Starts counting
/// anew. Any thread.
void FailAllocation(unsigned nth);

/// Allocations without throwing since then.
unsigned AllocationsSeen();

}  // namespace testing_support
