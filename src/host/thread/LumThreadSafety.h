#pragma once

/// Names for clang's thread-safety annotations; other compilers see nothing. scripts/lint checks them with
/// -Werror=thread-safety. What each attribute promises: https://clang.llvm.org/docs/ThreadSafetyAnalysis.html
#if defined(__clang__)
#define LUM_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define LUM_THREAD_ATTRIBUTE(x)
#endif

#define LUM_CAPABILITY(name) LUM_THREAD_ATTRIBUTE(capability(name))
#define LUM_SCOPED_CAPABILITY LUM_THREAD_ATTRIBUTE(scoped_lockable)
#define LUM_GUARDED_BY(mutex) LUM_THREAD_ATTRIBUTE(guarded_by(mutex))
#define LUM_PT_GUARDED_BY(mutex) LUM_THREAD_ATTRIBUTE(pt_guarded_by(mutex))
#define LUM_REQUIRES(...) LUM_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define LUM_ACQUIRE(...) LUM_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define LUM_TRY_ACQUIRE(...) LUM_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define LUM_RELEASE(...) LUM_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define LUM_EXCLUDES(...) LUM_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define LUM_ACQUIRED_BEFORE(...) LUM_THREAD_ATTRIBUTE(acquired_before(__VA_ARGS__))
#define LUM_ACQUIRED_AFTER(...) LUM_THREAD_ATTRIBUTE(acquired_after(__VA_ARGS__))
#define LUM_NO_THREAD_SAFETY_ANALYSIS LUM_THREAD_ATTRIBUTE(no_thread_safety_analysis)
