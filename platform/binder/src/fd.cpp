#include "fd.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <new>

namespace host {
namespace {

// One bit per descriptor number. Untouched pages of it cost no memory.
constexpr size_t kMaxTrackedFd = size_t{1} << 20;
constexpr size_t kBitsPerWord = 64;
std::atomic<uint64_t> g_open[kMaxTrackedFd / kBitsPerWord];
std::atomic<size_t> g_words_used{0};
std::atomic<bool> g_forked_child{false};

void Track(int fd) {
    size_t word = static_cast<size_t>(fd) / kBitsPerWord;
    if (word >= kMaxTrackedFd / kBitsPerWord) return;
    g_open[word].fetch_or(uint64_t{1} << (static_cast<size_t>(fd) % kBitsPerWord));
    size_t used = g_words_used.load();
    while (used <= word && !g_words_used.compare_exchange_weak(used, word + 1)) {
    }
}

void Untrack(int fd) {
    size_t word = static_cast<size_t>(fd) / kBitsPerWord;
    if (word >= kMaxTrackedFd / kBitsPerWord) return;
    g_open[word].fetch_and(~(uint64_t{1} << (static_cast<size_t>(fd) % kBitsPerWord)));
}

void CloseAllInChild() {
    g_forked_child.store(true);
    size_t words = g_words_used.load();
    for (size_t word = 0; word < words; ++word) {
        uint64_t bits = g_open[word].exchange(0);
        for (size_t bit = 0; bits != 0; ++bit, bits >>= 1) {
            if ((bits & 1) != 0) close(static_cast<int>(word * kBitsPerWord + bit));
        }
    }
}

// The lock was taken by a thread of the parent, and a thread of the child cannot give it back: the
// mutex would take that for a reader's, and the child's own fork would wait for ever.
void FreeForkMutexInChild() {
    new (&ForkMutex()) std::shared_mutex;
}

[[maybe_unused]] const int g_registered =
        pthread_atfork([] { ForkMutex().lock(); }, [] { ForkMutex().unlock(); },
                       [] {
                           FreeForkMutexInChild();
                           CloseAllInChild();
                       });

}  // namespace

std::shared_mutex& ForkMutex() {
    static auto* mutex =
            new std::shared_mutex;  // never destroyed: processes fork until the very end
    return *mutex;
}

bool IsForkedChild() {
    return g_forked_child.load(std::memory_order_relaxed);
}

void UniqueFd::Reset(int fd) {
    if (fd_ >= 0 && !IsForkedChild()) {
        int error = errno;
        Untrack(fd_);
        close(fd_);
        errno = error;
    }
    fd_ = fd;
    if (fd_ >= 0) Track(fd_);
}

}  // namespace host
