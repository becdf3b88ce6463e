#pragma once

// Which lock guards what, as declarations that clang's -Wthread-safety checks; other compilers read nothing.
#if defined(__clang__)
#define UTILSLIB_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define UTILSLIB_THREAD_ANNOTATION(x)
#endif

#define UTILSLIB_CAPABILITY(name) UTILSLIB_THREAD_ANNOTATION(capability(name))
#define UTILSLIB_SCOPED_CAPABILITY UTILSLIB_THREAD_ANNOTATION(scoped_lockable)
#define UTILSLIB_GUARDED_BY(lock) UTILSLIB_THREAD_ANNOTATION(guarded_by(lock))
#define UTILSLIB_REQUIRES(...) UTILSLIB_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define UTILSLIB_ACQUIRE(...) UTILSLIB_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define UTILSLIB_RELEASE(...) UTILSLIB_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
