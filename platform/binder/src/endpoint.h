// This process as others reach it: its name, its listening socket in the shared folder, and the
// peers it knows. Never destroyed. Any thread may call everything here except where said.
#pragma once

#include <android-base/thread_annotations.h>
#include <android/binder_status.h>
#include <sys/types.h>

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "fd.h"
#include "frame.h"

namespace host {

class Newcomer;
class Peer;

enum class ConnectResult {
    kConnected,
    kBusy,     // its queue of new connections is full: try again
    kShort,    // this process has no descriptor left: try again
    kRefused,  // nobody of that name is there
};

struct Connected {
    ConnectResult result = ConnectResult::kRefused;
    UniqueFd fd;
    pid_t pid = 0;
    uid_t uid = 0;
};

class Endpoint {
  public:
    static Endpoint& Get();

    // Listens from the first call on. Every way to reach another process begins here. Gives the
    // same answer again, except that a failure is tried anew.
    binder_status_t Start(std::string* error) EXCLUDES(mutex_);
    bool IsStarted() const { return started_.load(std::memory_order_acquire); }

    // Valid once started.
    const std::string& name() const { return name_; }
    const std::string& folder() const { return folder_; }

    // The peer of that name, made and connected to if need be. Never null; may be dead. Does not
    // wait. `named_by`, if any, has passed on a reference to it: if the name is refused, one WARN
    // line says so.
    std::shared_ptr<Peer> GetPeer(std::string_view name, Peer* named_by = nullptr) EXCLUDES(mutex_);
    std::shared_ptr<Peer> FindPeer(std::string_view name) EXCLUDES(mutex_);
    void Forget(Peer* peer) EXCLUDES(mutex_);
    // Whether the process which that name names lives here under another one.
    bool HasAnotherName(const std::string& name) EXCLUDES(mutex_);

    // One attempt to connect, without waiting; checks whose the other end is.
    Connected ConnectTo(std::string_view name);
    // The same for a call, hello sent; waits while the peer's queue of new connections is full.
    Connected ConnectForCall(Peer& peer);

    // Housekeeper: takes in connections that wait, a queue full of them at most.
    void AcceptAll();
    // Housekeeper: reads what the new connections of that process have said by now.
    void ReadHellos(pid_t pid);
    // Housekeeper: a connection has said whose it is.
    void OnHello(Newcomer* newcomer, const HelloBody& hello);
    void DropNewcomer(Newcomer* newcomer);

  private:
    Endpoint() = default;

    binder_status_t Listen(std::string* error) REQUIRES(mutex_);
    bool AcceptOne();
    // Out of descriptors: gives up one connection that waits. False if that was not possible.
    bool RefuseOne();
    void PauseListening();
    void MakeRoomForOneMore();
    bool HasAnotherName(const std::string& name, pid_t pid) REQUIRES(mutex_);
    void OnControl(Newcomer* newcomer, const std::string& name);
    void Refuse(Newcomer* newcomer, const Peer& peer, const char* reason);
    void OnCall(Newcomer* newcomer, const std::shared_ptr<Peer>& peer);
    void OnOneway(Newcomer* newcomer, const std::shared_ptr<Peer>& peer, const HelloBody& hello);
    void RemoveSocketFile(const std::string& name, int more_times);

    std::atomic<bool> started_{false};
    std::string folder_;  // constant once started
    std::string name_;

    // Housekeeper only.
    UniqueFd listener_;
    std::atomic<uint64_t> listener_key_{0};
    UniqueFd spare_;  // closed to accept and refuse one more when there is no other descriptor
    std::list<std::shared_ptr<Newcomer>> newcomers_;

    std::mutex mutex_;
    std::unordered_map<std::string, std::shared_ptr<Peer>> peers_ GUARDED_BY(mutex_);
};

// A frame without a body, or the hello, on a fresh connection: fits its buffer, or the connection
// is no good.
bool SendFrameNow(int fd, FrameType type);
bool SendHello(int fd, ConnectionKind kind, const std::string& name, int ring_file = -1);

}  // namespace host
