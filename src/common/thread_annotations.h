// Clang's thread-safety annotations; other compilers read past them.
#pragma once

#if defined(__clang__)
#define FENLUX_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define FENLUX_THREAD_ANNOTATION(x)
#endif

#define FENLUX_CAPABILITY(name) FENLUX_THREAD_ANNOTATION(capability(name))
#define FENLUX_SCOPED_CAPABILITY FENLUX_THREAD_ANNOTATION(scoped_lockable)
#define FENLUX_GUARDED_BY(x) FENLUX_THREAD_ANNOTATION(guarded_by(x))
#define FENLUX_REQUIRES(...) FENLUX_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define FENLUX_EXCLUDES(...) FENLUX_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define FENLUX_ACQUIRE(...) FENLUX_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define FENLUX_ACQUIRE_SHARED(...) FENLUX_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define FENLUX_RELEASE(...) FENLUX_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define FENLUX_RELEASE_GENERIC(...) FENLUX_THREAD_ANNOTATION(release_generic_capability(__VA_ARGS__))
