// Thread-safety attributes, checked by clang (-Wthread-safety), nothing elsewhere.
#pragma once

#if defined(__clang__)
#define Q_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define Q_THREAD_ATTRIBUTE(x)
#endif

#define Q_CAPABILITY(x) Q_THREAD_ATTRIBUTE(capability(x))
#define Q_SCOPED_CAPABILITY Q_THREAD_ATTRIBUTE(scoped_lockable)
#define Q_GUARDED_BY(x) Q_THREAD_ATTRIBUTE(guarded_by(x))
#define Q_PT_GUARDED_BY(x) Q_THREAD_ATTRIBUTE(pt_guarded_by(x))
#define Q_REQUIRES(...) Q_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define Q_ACQUIRE(...) Q_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define Q_TRY_ACQUIRE(...) Q_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define Q_RELEASE(...) Q_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define Q_EXCLUDES(...) Q_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define Q_RETURN_CAPABILITY(x) Q_THREAD_ATTRIBUTE(lock_returned(x))
#define Q_NO_THREAD_SAFETY_ANALYSIS Q_THREAD_ATTRIBUTE(no_thread_safety_analysis)
