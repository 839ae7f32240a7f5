#pragma once

// Clang's thread-safety analysis (-Wthread-safety, on in every clang build of this project):
// which lock guards which field, and which functions take, release or need a lock. The compiler
// then checks each access. Other compilers see nothing.
#if defined(__clang__)
#define QEN_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define QEN_THREAD_ANNOTATION(x)
#endif

#define QEN_CAPABILITY(name) QEN_THREAD_ANNOTATION(capability(name))
#define QEN_SCOPED_CAPABILITY QEN_THREAD_ANNOTATION(scoped_lockable)
#define QEN_GUARDED_BY(lock) QEN_THREAD_ANNOTATION(guarded_by(lock))
#define QEN_PT_GUARDED_BY(lock) QEN_THREAD_ANNOTATION(pt_guarded_by(lock))
#define QEN_REQUIRES(...) QEN_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define QEN_ACQUIRE(...) QEN_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define QEN_RELEASE(...) QEN_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define QEN_TRY_ACQUIRE(...) QEN_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define QEN_RETURN_CAPABILITY(lock) QEN_THREAD_ANNOTATION(lock_returned(lock))
// For the lock's own implementation, which the analysis cannot follow.
#define QEN_NO_THREAD_SAFETY_ANALYSIS QEN_THREAD_ANNOTATION(no_thread_safety_analysis)
