#pragma once

// Lock annotations for Clang's thread-safety analysis. They are real where the standard library's
// mutex is an annotated capability, which is Clang with libc++, and expand to nothing elsewhere.
// They cost nothing at run time.

#include <cstddef>  // Any standard header tells which standard library this is.

#if defined(__clang__) && defined(_LIBCPP_VERSION)
#define HOST_THREAD_ANNOTATION_(attribute) __attribute__((attribute))
#else
#define HOST_THREAD_ANNOTATION_(attribute)
#endif

// Types
#define CAPABILITY(kind) HOST_THREAD_ANNOTATION_(capability(kind))
#define SCOPED_CAPABILITY HOST_THREAD_ANNOTATION_(scoped_lockable)

// Data: the field itself, or what the field points to.
#define GUARDED_BY(mutex) HOST_THREAD_ANNOTATION_(guarded_by(mutex))
#define PT_GUARDED_BY(mutex) HOST_THREAD_ANNOTATION_(pt_guarded_by(mutex))
#define ACQUIRED_BEFORE(...) HOST_THREAD_ANNOTATION_(acquired_before(__VA_ARGS__))
#define ACQUIRED_AFTER(...) HOST_THREAD_ANNOTATION_(acquired_after(__VA_ARGS__))

// Functions: what a caller holds, and what the function takes or gives up.
#define REQUIRES(...) HOST_THREAD_ANNOTATION_(requires_capability(__VA_ARGS__))
#define REQUIRES_SHARED(...) HOST_THREAD_ANNOTATION_(requires_shared_capability(__VA_ARGS__))
#define EXCLUDES(...) HOST_THREAD_ANNOTATION_(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) HOST_THREAD_ANNOTATION_(acquire_capability(__VA_ARGS__))
#define ACQUIRE_SHARED(...) HOST_THREAD_ANNOTATION_(acquire_shared_capability(__VA_ARGS__))
#define RELEASE(...) HOST_THREAD_ANNOTATION_(release_capability(__VA_ARGS__))
#define RELEASE_SHARED(...) HOST_THREAD_ANNOTATION_(release_shared_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) HOST_THREAD_ANNOTATION_(try_acquire_capability(__VA_ARGS__))
#define TRY_ACQUIRE_SHARED(...) HOST_THREAD_ANNOTATION_(try_acquire_shared_capability(__VA_ARGS__))
#define ASSERT_CAPABILITY(mutex) HOST_THREAD_ANNOTATION_(assert_capability(mutex))
#define RETURN_CAPABILITY(mutex) HOST_THREAD_ANNOTATION_(lock_returned(mutex))

// Every use says in a comment why the analysis cannot follow, for instance a wait on a condition
// variable.
#define NO_THREAD_SAFETY_ANALYSIS HOST_THREAD_ANNOTATION_(no_thread_safety_analysis)

namespace android {
namespace base {

// Tells the analysis, inside a condition variable's predicate, that the waiting function holds
// `mutex`.
class SCOPED_CAPABILITY ScopedLockAssertion {
  public:
    template <typename Mutex>
    explicit ScopedLockAssertion(Mutex& mutex) ACQUIRE(mutex) {
        static_cast<void>(mutex);
    }
    ~ScopedLockAssertion() RELEASE() {}

    ScopedLockAssertion(const ScopedLockAssertion&) = delete;
    ScopedLockAssertion& operator=(const ScopedLockAssertion&) = delete;
};

}  // namespace base
}  // namespace android
