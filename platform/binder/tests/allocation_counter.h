// Counts the allocations of the calling thread. To be included by one file of a test program.
//
// Threads: each thread sees its own count.

#pragma once

#include <stdlib.h>

#include <new>

inline thread_local int allocation_count = 0;

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define HOST_TEST_ALLOCATION_HOOK
#endif
#endif

#if defined(HOST_TEST_ALLOCATION_HOOK)
// This run time has an operator new of its own, which cannot be replaced but listened to.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*malloc_hook)(const volatile void*,
                                                                             size_t),
                                                         void (*free_hook)(const volatile void*));
inline const int allocation_hook = __sanitizer_install_malloc_and_free_hooks(
        [](const volatile void*, size_t) { ++allocation_count; }, [](const volatile void*) {});
#else
// Not inlined: a compiler that sees only one of the pair warns.
[[gnu::noinline]] void* operator new(size_t size) {
    ++allocation_count;
    void* memory = malloc(size == 0 ? 1 : size);
    if (memory == nullptr) abort();
    return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept {
    free(memory);
}
#endif
