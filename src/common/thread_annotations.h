// Names for clang's thread-safety attributes; empty for other compilers.
//
// Source: "Thread Safety Analysis" in the clang documentation.
#pragma once

#if defined(__clang__)
#define OSTRAND_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define OSTRAND_THREAD_ATTRIBUTE(x)
#endif

#define OSTRAND_CAPABILITY(name) OSTRAND_THREAD_ATTRIBUTE(capability(name))
#define OSTRAND_SCOPED_CAPABILITY OSTRAND_THREAD_ATTRIBUTE(scoped_lockable)
#define OSTRAND_GUARDED_BY(mutex) OSTRAND_THREAD_ATTRIBUTE(guarded_by(mutex))
#define OSTRAND_REQUIRES(...) OSTRAND_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define OSTRAND_EXCLUDES(...) OSTRAND_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define OSTRAND_ACQUIRE(...) OSTRAND_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define OSTRAND_RELEASE(...) OSTRAND_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define OSTRAND_ACQUIRED_BEFORE(...) OSTRAND_THREAD_ATTRIBUTE(acquired_before(__VA_ARGS__))
#define OSTRAND_NO_THREAD_SAFETY_ANALYSIS OSTRAND_THREAD_ATTRIBUTE(no_thread_safety_analysis)
