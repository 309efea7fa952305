// What a processor can be told that spins, or that is about to write.
#pragma once

namespace host {

// Between two looks at a word that another processor is to change.
inline void RelaxProcessor() {
#if defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

// Gets the cache line of `address`, which another processor has read, for writing; does not wait.
inline void FetchToWrite(const void* address) {
#if defined(__x86_64__)
    // The builtin fetches it for reading only, unless built for newer processors. Those without the
    // instruction take it for none.
    asm volatile("prefetchw %0" : : "m"(*static_cast<const char*>(address)));
#else
    __builtin_prefetch(address, 1);
#endif
}

}  // namespace host
