// Clang's thread-safety annotations, where the phone's utility library does not define them;
// nothing under other compilers.
#pragma once

#include <utils/Mutex.h>

#if defined(__clang__)
#define PELTO_THREAD_SAFETY(x) __attribute__((x))
#else
#define PELTO_THREAD_SAFETY(x)
#endif

#ifndef SCOPED_CAPABILITY
#define SCOPED_CAPABILITY PELTO_THREAD_SAFETY(scoped_lockable)
#endif
#ifndef GUARDED_BY
#define GUARDED_BY(x) PELTO_THREAD_SAFETY(guarded_by(x))
#endif
#ifndef REQUIRES
#define REQUIRES(...) PELTO_THREAD_SAFETY(requires_capability(__VA_ARGS__))
#endif
#ifndef ACQUIRE
#define ACQUIRE(...) PELTO_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#endif
#ifndef RELEASE
#define RELEASE(...) PELTO_THREAD_SAFETY(release_capability(__VA_ARGS__))
#endif
#ifndef EXCLUDES
#define EXCLUDES(...) PELTO_THREAD_SAFETY(locks_excluded(__VA_ARGS__))
#endif
