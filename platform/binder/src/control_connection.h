// The one connection that stands for the life of the other process. Read by the housekeeper alone;
// written under the lock of its Peer. Its end is the peer's death, for both sides.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "buffer.h"
#include "fd.h"
#include "frame.h"
#include "housekeeper.h"

namespace host {

class Peer;

class ControlConnection : public Watched, public std::enable_shared_from_this<ControlConnection> {
  public:
    ControlConnection(UniqueFd fd, std::shared_ptr<Peer> peer)
            : fd_(std::move(fd)), peer_(std::move(peer)) {}

    bool StartWatching();
    void StopWatching();
    void WatchForRoom(bool wanted);
    // Wakes the housekeeper with the end of the connection.
    void ShutDown();
    int fd() const { return fd_.get(); }

    void OnEvents(uint32_t events) override;

  private:
    bool Read();
    // False: the connection is to be cut, for `*reason`.
    bool HandleFrames(const char** reason);
    bool HandleFrame(FrameType type, Bytes body);

    UniqueFd fd_;
    const std::shared_ptr<Peer> peer_;
    std::atomic<uint64_t> key_{0};
    Buffer in_;
};

}  // namespace host
