// The place of a mutex in the order in which mutexes are taken. Shared by both sides of the door;
// the ranks themselves belong to whoever owns the mutexes.
#pragma once

namespace platform {

/// A thread may lock a mutex only while every mutex that it holds has a lower level. The hosted
/// guard checks this at every lock; on Windows the rank costs nothing.
struct LockRank {
    int level;         ///< Outermost is lowest. Two mutexes of one level are never held together.
    const char* name;  ///< Shown when the order is broken and when a run stalls.
};

}  // namespace platform
