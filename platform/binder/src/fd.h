// A descriptor of the layer, owned. Not for concurrent use; the table behind it is safe from any
// thread.
#pragma once

#include <shared_mutex>
#include <utility>

namespace host {

// True in a child that was forked and has not called exec: the layer's descriptors are gone there,
// and nothing of the layer may touch a descriptor by number again.
bool IsForkedChild();

// Shared by threads between making a descriptor and owning it, held alone by a fork: without it a
// child could keep a copy that nobody had entered yet.
std::shared_mutex& ForkMutex();

// A descriptor on its way into a UniqueFd. Lives to the end of the full expression, so that
// `UniqueFd fd(sys::Socket(...))` leaves no moment in between.
class NewFd {
  public:
    template <typename Make>
    explicit NewFd(Make make) : lock_(ForkMutex()), fd_(make()) {}
    int get() const { return fd_; }

  private:
    std::shared_lock<std::shared_mutex> lock_;
    const int fd_;
};

// Owns one descriptor. Every descriptor of the layer lives in one of these, so that a forked child
// can give up its copies: a copy kept open there would hide its parent's death from the parent's
// peers.
class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) { Reset(fd); }
    explicit UniqueFd(const NewFd& made) : UniqueFd(made.get()) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            Reset();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }
    ~UniqueFd() { Reset(); }

    int get() const { return fd_; }
    bool ok() const { return fd_ >= 0; }

    // Closes what it owns and owns `fd` from now on; -1 for nothing.
    void Reset(int fd = -1);

  private:
    int fd_ = -1;
};

}  // namespace host
