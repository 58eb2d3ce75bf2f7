// The place of a mutex in the order in which mutexes are locked, on every platform. The owner of a
// mutex defines its rank.
#pragma once

namespace platform {

/// A thread may lock a mutex only while every mutex that it holds has a lower level. The Lock of
/// the emulation checks this; on Windows the rank costs nothing.
struct LockRank {
    int level;         ///< The outermost is the lowest. No two of one level are held together.
    const char* name;  ///< For the reports of a broken order and of a stalled run.
};

}  // namespace platform
