// Annotations for clang's -Wthread-safety: which mutex guards which variable, and which functions
// take or need it. For other compilers they are empty.
#pragma once

#if defined(__clang__)
#define TAGPORT_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define TAGPORT_THREAD_SAFETY(attribute)
#endif

/// A class whose objects can be locked.
#define TAGPORT_CAPABILITY TAGPORT_THREAD_SAFETY(capability("mutex"))
/// A class whose objects hold a mutex from construction to destruction.
#define TAGPORT_SCOPED_LOCK TAGPORT_THREAD_SAFETY(scoped_lockable)
#define TAGPORT_ACQUIRE(...) TAGPORT_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define TAGPORT_RELEASE(...) TAGPORT_THREAD_SAFETY(release_capability(__VA_ARGS__))

/// A variable that is only touched with the mutex held.
#define TAGPORT_GUARDED_BY(mutex) TAGPORT_THREAD_SAFETY(guarded_by(mutex))
/// A function that is only called with the mutex held, or only without it.
#define TAGPORT_REQUIRES(...) TAGPORT_THREAD_SAFETY(requires_capability(__VA_ARGS__))
#define TAGPORT_EXCLUDES(...) TAGPORT_THREAD_SAFETY(locks_excluded(__VA_ARGS__))
/// A function that reads an atomic variable without the lock that its writers hold.
#define TAGPORT_READS_UNLOCKED TAGPORT_THREAD_SAFETY(no_thread_safety_analysis)
/// States what the analysis cannot see: inside a predicate the mutex is held.
#define TAGPORT_ASSERT_HELD(...) TAGPORT_THREAD_SAFETY(assert_capability(__VA_ARGS__))
