// Clang's thread-safety annotations; nothing under other compilers.
#pragma once

#if defined(__clang__)
#define PELTO_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define PELTO_THREAD_ATTRIBUTE(x)
#endif

#define CAPABILITY(x) PELTO_THREAD_ATTRIBUTE(capability(x))
#define SCOPED_CAPABILITY PELTO_THREAD_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(x) PELTO_THREAD_ATTRIBUTE(guarded_by(x))
#define REQUIRES(...) PELTO_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) PELTO_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) PELTO_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) PELTO_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define EXCLUDES(...) PELTO_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
