#pragma once

/// Which mutex guards what, in a form that clang checks (`-Wthread-safety`) and other compilers
/// skip.
#if defined(__clang__)
#define CMP_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define CMP_THREAD_ANNOTATION(x)
#endif

#define CMP_CAPABILITY(x) CMP_THREAD_ANNOTATION(capability(x))
#define CMP_SCOPED_CAPABILITY CMP_THREAD_ANNOTATION(scoped_lockable)
#define CMP_GUARDED_BY(x) CMP_THREAD_ANNOTATION(guarded_by(x))
#define CMP_REQUIRES(...) CMP_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define CMP_EXCLUDES(...) CMP_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define CMP_ACQUIRE(...) CMP_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define CMP_ACQUIRE_SHARED(...) CMP_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
/// For what is sound for another reason, which a comment gives.
#define CMP_NO_THREAD_SAFETY_ANALYSIS CMP_THREAD_ANNOTATION(no_thread_safety_analysis)
#define CMP_RELEASE(...) CMP_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
