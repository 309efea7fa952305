#include "counted_calls.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace bench {
namespace {

std::atomic<uint64_t> g_uncounted{0};

}  // namespace

std::atomic<uint64_t>* g_counted_calls = &g_uncounted;

}  // namespace bench

namespace {

template <typename... Arguments>
long Counted(long number, Arguments... arguments) {
    bench::g_counted_calls->fetch_add(1, std::memory_order_relaxed);
    return syscall(number, arguments...);
}

}  // namespace

extern "C" {

ssize_t send(int fd, const void* data, size_t size, int flags) {
    return Counted(SYS_sendto, fd, data, size, flags, nullptr, 0);
}
ssize_t sendmsg(int fd, const msghdr* message, int flags) {
    return Counted(SYS_sendmsg, fd, message, flags);
}
ssize_t recv(int fd, void* data, size_t size, int flags) {
    return Counted(SYS_recvfrom, fd, data, size, flags, nullptr, nullptr);
}
ssize_t recvmsg(int fd, msghdr* message, int flags) {
    return Counted(SYS_recvmsg, fd, message, flags);
}
ssize_t read(int fd, void* data, size_t size) {
    return Counted(SYS_read, fd, data, size);
}
ssize_t write(int fd, const void* data, size_t size) {
    return Counted(SYS_write, fd, data, size);
}
int epoll_wait(int fd, epoll_event* events, int count, int timeout) {
    return static_cast<int>(Counted(SYS_epoll_pwait, fd, events, count, timeout, nullptr, 8));
}
int epoll_ctl(int fd, int operation, int target, epoll_event* event) noexcept {
    return static_cast<int>(Counted(SYS_epoll_ctl, fd, operation, target, event));
}

}  // extern "C"
