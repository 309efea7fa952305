#include "line_output.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace host {
namespace {

// Keeps SIGPIPE from the calling thread while it lives, and swallows the one that a write in its
// scope raised.
class SigpipeGuard {
  public:
    SigpipeGuard() {
        sigemptyset(&sigpipe_);
        sigaddset(&sigpipe_, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &sigpipe_, &former_);
        if (sigismember(&former_, SIGPIPE) == 1) {
            sigset_t pending;
            sigpending(&pending);
            was_pending_ = sigismember(&pending, SIGPIPE) == 1;
        }
    }
    ~SigpipeGuard() {
        const int saved_errno = errno;
        if (broken_ && !was_pending_) {
            const timespec no_time = {};
            sigtimedwait(&sigpipe_, nullptr, &no_time);
        }
        pthread_sigmask(SIG_SETMASK, &former_, nullptr);
        errno = saved_errno;
    }
    SigpipeGuard(const SigpipeGuard&) = delete;
    SigpipeGuard& operator=(const SigpipeGuard&) = delete;

    ssize_t Watch(ssize_t result) {
        broken_ = broken_ || (result < 0 && errno == EPIPE);
        return result;
    }

  private:
    sigset_t sigpipe_;
    sigset_t former_;
    bool was_pending_ = false;
    bool broken_ = false;
};

}  // namespace

LineOutput::Outcome LineOutput::Put(std::string_view line) {
    struct stat status;
    if (fstat(descriptor_, &status) != 0) return Outcome::kClosed;
    if (!tail_.empty() && PutTail(status) != Outcome::kTaken) return Outcome::kRefused;
    const ssize_t written = Write(status, line);
    if (written <= 0) return Outcome::kRefused;
    if (static_cast<size_t>(written) < line.size()) {
        tail_ = line.substr(static_cast<size_t>(written));
        tail_device_ = status.st_dev;
        tail_inode_ = status.st_ino;
    }
    return Outcome::kTaken;
}

LineOutput::Outcome LineOutput::PutTail(const struct stat& status) {
    if (tail_device_ != status.st_dev || tail_inode_ != status.st_ino) {
        tail_.clear();  // Half a line of another file has no place in this one.
        return Outcome::kTaken;
    }
    const ssize_t written = Write(status, tail_);
    if (written > 0) tail_.erase(0, static_cast<size_t>(written));
    return tail_.empty() ? Outcome::kTaken : Outcome::kRefused;
}

ssize_t LineOutput::Write(const struct stat& status, std::string_view bytes) {
    if (S_ISSOCK(status.st_mode)) {
        return send(descriptor_, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
    if (S_ISFIFO(status.st_mode)) return WriteToPipe(bytes);
    if (S_ISCHR(status.st_mode) && isatty(descriptor_) == 1) return WriteReopened(bytes);
    return write(descriptor_, bytes.data(), bytes.size());
}

// O_NONBLOCK belongs to the open file that other processes share: setting it on the descriptor
// would make their writes fail. A pipe takes up to PIPE_BUF bytes whole or not at all.
ssize_t LineOutput::WriteToPipe(std::string_view bytes) {
    SigpipeGuard guard;
    if (no_wait_works_) {
        const ssize_t written = guard.Watch(WriteNow(bytes));
        if (written >= 0 || (errno != EOPNOTSUPP && errno != ENOSYS)) return written;
        no_wait_works_ = false;
    }
    return guard.Watch(WriteReopened(bytes));
}

ssize_t LineOutput::WriteNow(std::string_view bytes) {
    const iovec part = {const_cast<char*>(bytes.data()), bytes.size()};
    return pwritev2(descriptor_, &part, 1, -1, RWF_NOWAIT);
}

// Through an open file of our own, closed at once: kept, it would hold the pipe open after the
// process has changed its standard error. Not every process may open its standard error again; the
// one that may not asks for room first, and could still wait if another process took that room in
// between.
ssize_t LineOutput::WriteReopened(std::string_view bytes) {
    char path[32];
    std::snprintf(path, sizeof(path), "/proc/self/fd/%d", descriptor_);
    const int own = open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (own >= 0) {
        const ssize_t written = write(own, bytes.data(), bytes.size());
        const int saved_errno = errno;
        close(own);
        errno = saved_errno;
        return written;
    }
    pollfd room = {descriptor_, POLLOUT, 0};
    if (poll(&room, 1, 0) != 1 || (room.revents & POLLOUT) == 0) return -1;
    return write(descriptor_, bytes.data(), bytes.size());
}

}  // namespace host
