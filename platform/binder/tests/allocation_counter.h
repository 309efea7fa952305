// Counts what operator new gives out on the calling thread. To be included by one file of a test
// program.
//
// Threads: each thread sees its own count.

#pragma once

#include <stdlib.h>

#include <new>

inline thread_local int allocation_count = 0;

// Not inlined: a compiler that sees new from here and delete from the library, or the other way
// round, warns.
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
