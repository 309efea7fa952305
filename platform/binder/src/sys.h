// The system calls of the transport, each with a switch by which a test makes it fail.
// All functions answer as the calls that they name. Any thread.
#pragma once

#include <fcntl.h>
#include <linux/futex.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>

#include "fd.h"

namespace host::sys {

// True while some call is to fail. The only cost of the switch in normal operation is this load.
extern std::atomic<bool> g_fault_armed;

// The error with which the call `name` fails now, 0 if it goes on. Counts the calls of that name.
int TakeFault(const char* name);

inline bool Fails(const char* name) {
    if (!g_fault_armed.load(std::memory_order_relaxed)) [[likely]]
        return false;
    int error = TakeFault(name);
    if (error == 0) return false;
    errno = error;
    return true;
}

inline ssize_t SendMsg(int fd, const msghdr* message, int flags) {
    return Fails("sendmsg") ? -1 : ::sendmsg(fd, message, flags | MSG_NOSIGNAL);
}
inline ssize_t RecvMsg(int fd, msghdr* message, int flags) {
    return Fails("recvmsg") ? -1 : ::recvmsg(fd, message, flags | MSG_CMSG_CLOEXEC);
}
inline int Poll(pollfd* what, int limit_ms) {
    return Fails("poll") ? -1 : ::poll(what, 1, limit_ms);
}
inline ssize_t Send(int fd, const void* data, size_t size, int flags) {
    return Fails("send") ? -1 : ::send(fd, data, size, flags | MSG_NOSIGNAL);
}
inline ssize_t Recv(int fd, void* data, size_t size, int flags) {
    return Fails("recv") ? -1 : ::recv(fd, data, size, flags);
}
inline NewFd Socket(int domain, int type, int protocol) {
    return NewFd([&] { return Fails("socket") ? -1 : ::socket(domain, type, protocol); });
}
inline int Connect(int fd, const sockaddr* address, socklen_t size) {
    return Fails("connect") ? -1 : ::connect(fd, address, size);
}
inline int Bind(int fd, const sockaddr* address, socklen_t size) {
    return Fails("bind") ? -1 : ::bind(fd, address, size);
}
inline int Listen(int fd, int backlog) {
    return Fails("listen") ? -1 : ::listen(fd, backlog);
}
inline NewFd Accept4(int fd, int flags) {
    return NewFd([&] { return Fails("accept4") ? -1 : ::accept4(fd, nullptr, nullptr, flags); });
}
inline int GetSockOpt(int fd, int level, int name, void* value, socklen_t* size) {
    return Fails("getsockopt") ? -1 : ::getsockopt(fd, level, name, value, size);
}
inline int GetPeerName(int fd, sockaddr* address, socklen_t* size) {
    return Fails("getpeername") ? -1 : ::getpeername(fd, address, size);
}
inline NewFd EpollCreate1(int flags) {
    return NewFd([&] { return Fails("epoll_create1") ? -1 : ::epoll_create1(flags); });
}
inline int EpollCtl(int epoll, int operation, int fd, epoll_event* event) {
    return Fails("epoll_ctl") ? -1 : ::epoll_ctl(epoll, operation, fd, event);
}
inline int EpollWait(int epoll, epoll_event* events, int count, int timeout_ms) {
    return Fails("epoll_wait") ? -1 : ::epoll_wait(epoll, events, count, timeout_ms);
}
inline NewFd EventFd(unsigned value, int flags) {
    return NewFd([&] { return Fails("eventfd") ? -1 : ::eventfd(value, flags); });
}
inline NewFd MemfdCreate(const char* name, unsigned flags) {
    return NewFd([&] { return Fails("memfd_create") ? -1 : ::memfd_create(name, flags); });
}
inline int Ftruncate(int fd, off_t size) {
    return Fails("ftruncate") ? -1 : ::ftruncate(fd, size);
}
inline void* Mmap(size_t size, int protection, int flags, int fd) {
    return Fails("mmap") ? MAP_FAILED : ::mmap(nullptr, size, protection, flags, fd, 0);
}
inline int Fcntl(int fd, int command, int argument) {
    return Fails("fcntl") ? -1 : ::fcntl(fd, command, argument);
}
inline ssize_t GetRandom(void* data, size_t size) {
    return Fails("getrandom") ? -1 : ::getrandom(data, size, 0);
}
// Answers the error itself.
inline int PthreadCreate(pthread_t* thread, void* (*body)(void*), void* argument) {
    return Fails("pthread_create") ? errno : ::pthread_create(thread, nullptr, body, argument);
}

// On a word that processes share. Both return for no reason, too, and never fail in a way that
// matters: a word that somebody else changes is looked at again.
inline void FutexWake(void* word) {
    ::syscall(SYS_futex, word, FUTEX_WAKE, 1, nullptr, nullptr, 0);
}
inline void FutexWait(void* word, uint32_t value, std::chrono::microseconds limit) {
    timespec time{limit.count() / 1'000'000, limit.count() % 1'000'000 * 1000};
    ::syscall(SYS_futex, word, FUTEX_WAIT, value, &time, nullptr, 0);
}

}  // namespace host::sys
