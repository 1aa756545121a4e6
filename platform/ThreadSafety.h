#pragma once

// States what a lock guards and which lock comes first, in a form that clang checks.
#if defined(__clang__)
#define RAVO_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define RAVO_THREAD_ATTRIBUTE(x)
#endif

#define RAVO_CAPABILITY(name) RAVO_THREAD_ATTRIBUTE(capability(name))
#define RAVO_SCOPED_CAPABILITY RAVO_THREAD_ATTRIBUTE(scoped_lockable)
#define RAVO_GUARDED_BY(lock) RAVO_THREAD_ATTRIBUTE(guarded_by(lock))
#define RAVO_ACQUIRED_BEFORE(...) RAVO_THREAD_ATTRIBUTE(acquired_before(__VA_ARGS__))
#define RAVO_ACQUIRED_AFTER(...) RAVO_THREAD_ATTRIBUTE(acquired_after(__VA_ARGS__))
#define RAVO_ACQUIRE(...) RAVO_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RAVO_TRY_ACQUIRE(...) RAVO_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define RAVO_RELEASE(...) RAVO_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define RAVO_REQUIRES(...) RAVO_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define RAVO_EXCLUDES(...) RAVO_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))

// For a body that locks in a way that the analysis cannot follow; its declaration states what it
// does.
#define RAVO_UNCHECKED RAVO_THREAD_ATTRIBUTE(no_thread_safety_analysis)
