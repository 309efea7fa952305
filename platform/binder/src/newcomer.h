// A connection that has not said whose it is. Housekeeper only.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "fd.h"
#include "housekeeper.h"
#include "wire.h"

namespace host {

class Newcomer : public Watched, public std::enable_shared_from_this<Newcomer> {
  public:
    Newcomer(UniqueFd fd, pid_t pid, uid_t uid) : fd_(std::move(fd)), pid_(pid), uid_(uid) {}

    // Reads the hello if it is there already, else waits for it.
    void Begin();
    // Takes what has come, which may end it or hand it on, and drops it from the endpoint's list.
    void Read();
    void OnEvents(uint32_t) override { Read(); }
    void StopWatching();
    // Ends it with one WARN line.
    void Cut(const char* reason);

    UniqueFd TakeFd() { return std::move(fd_); }
    UniqueFd TakeReceived() { return std::move(received_); }
    bool has_received() const { return received_.ok(); }
    pid_t pid() const { return pid_; }
    uid_t uid() const { return uid_; }

  private:
    bool Receive();
    void Finish();

    UniqueFd fd_;
    const pid_t pid_;
    const uid_t uid_;
    UniqueFd received_;
    uint64_t key_ = 0;
    size_t size_ = 0;
    uint8_t bytes_[sizeof(FrameHeader) + sizeof(HelloBody)] = {};
};

}  // namespace host
