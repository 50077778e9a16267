#pragma once

/** Clang's thread-safety attributes: they state which lock guards what, and clang reports code that breaks
    the rules. For other compilers they are empty.

    See https://clang.llvm.org/docs/ThreadSafetyAnalysis.html. */
#if defined(__clang__)
#define NBX_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define NBX_THREAD_ANNOTATION(x)
#endif

#define NBX_CAPABILITY(x) NBX_THREAD_ANNOTATION(capability(x))
#define NBX_SCOPED_CAPABILITY NBX_THREAD_ANNOTATION(scoped_lockable)
#define NBX_GUARDED_BY(x) NBX_THREAD_ANNOTATION(guarded_by(x))
#define NBX_REQUIRES(...) NBX_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define NBX_ACQUIRE(...) NBX_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define NBX_TRY_ACQUIRE(...) NBX_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define NBX_RELEASE(...) NBX_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define NBX_EXCLUDES(...) NBX_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define NBX_ASSERT_CAPABILITY(x) NBX_THREAD_ANNOTATION(assert_capability(x))
#define NBX_NO_THREAD_SAFETY_ANALYSIS NBX_THREAD_ANNOTATION(no_thread_safety_analysis)
