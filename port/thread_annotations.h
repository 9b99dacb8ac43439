// Names for clang's thread-safety analysis (-Wthread-safety); empty for other compilers.
#pragma once

#if defined(__clang__)
#define QIV_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define QIV_THREAD_ANNOTATION(x)
#endif

#define QIV_CAPABILITY(x) QIV_THREAD_ANNOTATION(capability(x))
#define QIV_SCOPED_CAPABILITY QIV_THREAD_ANNOTATION(scoped_lockable)
#define QIV_GUARDED_BY(x) QIV_THREAD_ANNOTATION(guarded_by(x))
#define QIV_REQUIRES(...) QIV_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define QIV_EXCLUDES(...) QIV_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define QIV_ACQUIRE(...) QIV_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define QIV_RELEASE(...) QIV_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define QIV_ACQUIRED_BEFORE(...) QIV_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
