// Clang's thread-safety annotations. Other compilers ignore them.
#pragma once

#if defined(__clang__)
#define FENLUX_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define FENLUX_THREAD_ANNOTATION(x)
#endif

#define FENLUX_CAPABILITY(name) FENLUX_THREAD_ANNOTATION(capability(name))
#define FENLUX_SCOPED_CAPABILITY FENLUX_THREAD_ANNOTATION(scoped_lockable)
#define FENLUX_GUARDED_BY(x) FENLUX_THREAD_ANNOTATION(guarded_by(x))
#define FENLUX_PT_GUARDED_BY(x) FENLUX_THREAD_ANNOTATION(pt_guarded_by(x))
#define FENLUX_ACQUIRED_BEFORE(...) FENLUX_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define FENLUX_ACQUIRED_AFTER(...) FENLUX_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))
#define FENLUX_REQUIRES(...) FENLUX_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define FENLUX_REQUIRES_SHARED(...) FENLUX_THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))
#define FENLUX_EXCLUDES(...) FENLUX_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define FENLUX_ACQUIRE(...) FENLUX_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define FENLUX_ACQUIRE_SHARED(...) FENLUX_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define FENLUX_TRY_ACQUIRE(...) FENLUX_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define FENLUX_RELEASE(...) FENLUX_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define FENLUX_RELEASE_SHARED(...) FENLUX_THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))
#define FENLUX_RELEASE_GENERIC(...) FENLUX_THREAD_ANNOTATION(release_generic_capability(__VA_ARGS__))
#define FENLUX_NO_THREAD_SAFETY_ANALYSIS FENLUX_THREAD_ANNOTATION(no_thread_safety_analysis)
