#include "endpoint.h"

#include <poll.h>
#include <sys/resource.h>
#include <sys/un.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "call_connection.h"
#include "control_connection.h"
#include "descriptors.h"
#include "housekeeper.h"
#include "limits.h"
#include "newcomer.h"
#include "oneway_receiver.h"
#include "peer.h"
#include "runtime_folder.h"
#include "sys.h"
#include "warning.h"

namespace host {
namespace {

constexpr int kListenBacklog = 4096;
constexpr int kListenAgainMs = 50;
constexpr int kLookAgainMs = 100;
constexpr int kLooksForSocketFile = 3;

class Listener : public Watched {
  public:
    void OnEvents(uint32_t) override { Endpoint::Get().AcceptAll(); }
};

bool PeerCredentials(int fd, pid_t* pid, uid_t* uid) {
    ucred who{};
    socklen_t size = sizeof(who);
    if (sys::GetSockOpt(fd, SOL_SOCKET, SO_PEERCRED, &who, &size) != 0) return false;
    *pid = who.pid;
    *uid = who.uid;
    return who.uid == geteuid() || who.uid == 0;
}

// What the other end was bound to. A link in the folder gives a socket as many names as one likes.
bool ListensUnder(int fd, std::string_view name) {
    sockaddr_un address{};
    socklen_t size = sizeof(address);
    if (sys::GetPeerName(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) return false;
    std::string_view path(address.sun_path, strnlen(address.sun_path, sizeof(address.sun_path)));
    return path.ends_with("/" + std::string(name));
}

sockaddr_un SocketAddress(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    // The folder's path was checked to leave room.
    memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof(address.sun_path) - 1));
    return address;
}

void RaiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == limit.rlim_max) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

UniqueFd SpareDescriptor() {
    return UniqueFd(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

std::string* g_socket_path;

void RemoveOwnSocket() {
    if (!IsForkedChild()) unlink(g_socket_path->c_str());
}

}  // namespace

Endpoint& Endpoint::Get() {
    static Endpoint* endpoint = new Endpoint;  // never destroyed, as its peers
    return *endpoint;
}

binder_status_t Endpoint::Start(std::string* error) {
    if (IsForkedChild()) {
        *error = "A child that was forked without exec has no binder.";
        return STATUS_INVALID_OPERATION;
    }
    if (IsStarted()) return STATUS_OK;
    std::lock_guard lock(mutex_);
    if (IsStarted()) return STATUS_OK;
    binder_status_t status = RuntimeFolder(&folder_, error);
    if (status == STATUS_OK) status = Listen(error);
    if (status == STATUS_OK) started_.store(true, std::memory_order_release);
    return status;
}

binder_status_t Endpoint::Listen(std::string* error) {
    RaiseDescriptorLimit();
    uint64_t bits = 0;
    char name[kEndpointNameSize];
    bool drawn = sys::GetRandom(&bits, sizeof(bits)) == static_cast<ssize_t>(sizeof(bits));
    snprintf(name, sizeof(name), "%d-%016llx", getpid(), static_cast<unsigned long long>(bits));
    std::string path = folder_ + "/" + name;
    sockaddr_un address = SocketAddress(path);
    // Complete before the housekeeper sees the first connection.
    name_ = name;
    spare_ = SpareDescriptor();
    listener_ = UniqueFd(sys::Socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    bool listening = drawn && listener_.ok() &&
                     sys::Bind(listener_.get(), reinterpret_cast<sockaddr*>(&address),
                               sizeof(address)) == 0 &&
                     sys::Listen(listener_.get(), kListenBacklog) == 0 &&
                     Housekeeper::Get().Start();
    if (listening) {
        listener_key_ =
                Housekeeper::Get().Watch(listener_.get(), EPOLLIN, std::make_shared<Listener>());
        listening = listener_key_ != 0;
    }
    if (!listening) {
        *error = "Cannot listen at " + path + ": " + strerror(errno) + ".";
        unlink(path.c_str());
        listener_.Reset();
        return STATUS_NO_MEMORY;
    }
    g_socket_path = new std::string(path);
    std::atexit(RemoveOwnSocket);
    return STATUS_OK;
}

std::shared_ptr<Peer> Endpoint::FindPeer(std::string_view name) {
    std::lock_guard lock(mutex_);
    auto found = peers_.find(std::string(name));
    return found == peers_.end() ? nullptr : found->second;
}

std::shared_ptr<Peer> Endpoint::GetPeer(std::string_view name, Peer* named_by) {
    std::shared_ptr<Peer> peer;
    {
        std::lock_guard lock(mutex_);
        std::shared_ptr<Peer>& slot = peers_[std::string(name)];
        if (slot != nullptr) return slot;
        slot = std::make_shared<Peer>(std::string(name));
        peer = slot;
    }
    if (!peer->Connect() && named_by != nullptr && named_by->IsFirst(Peer::Trouble::kBadOwners)) {
        Warn("References from pid %d uid %d name owners that are not looked for: "
             "second names of a process, or too many that do not answer.",
             named_by->pid(), named_by->uid());
    }
    return peer;
}

bool Endpoint::HasAnotherName(const std::string& name) {
    std::lock_guard lock(mutex_);
    return HasAnotherName(name, PidOfEndpointName(name).value_or(-1));
}

// A number that has come round again belongs to a new process: the old one's connection has ended.
bool Endpoint::HasAnotherName(const std::string& name, pid_t pid) {
    return std::any_of(peers_.begin(), peers_.end(), [&](const auto& one) {
        const auto& [other, known] = one;
        return other != name && known->pid() == pid && known->IsConnectionOpen();
    });
}

void Endpoint::Forget(Peer* peer) {
    std::shared_ptr<Peer> last;
    {
        std::lock_guard lock(mutex_);
        auto found = peers_.find(peer->name);
        if (found != peers_.end() && found->second.get() == peer) {
            last = std::move(found->second);
            peers_.erase(found);
        }
    }
    if (peer->pid() != 0) RemoveSocketFile(peer->name, kLooksForSocketFile);
}

// Not by whether the process is there: one that was killed is for as long as nobody reaps it. Its
// connections may go a moment before its socket does.
void Endpoint::RemoveSocketFile(const std::string& name, int more_times) {
    const Connected connected = ConnectTo(name);
    if (connected.result == ConnectResult::kRefused && connected.pid == 0) {
        unlink((folder_ + "/" + name).c_str());
    } else if (more_times > 0) {
        Housekeeper::Get().RunLater(
                kLookAgainMs, [this, name, more_times] { RemoveSocketFile(name, more_times - 1); });
    }
}

Connected Endpoint::ConnectTo(std::string_view name) {
    Connected connected;
    connected.fd = UniqueFd(sys::Socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!connected.fd.ok()) {
        connected.result = ConnectResult::kShort;
        return connected;
    }
    sockaddr_un address = SocketAddress(folder_ + "/" + std::string(name));
    if (sys::Connect(connected.fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) !=
        0) {
        // Whatever else it is, a socket of ours is not there, and no patience brings one.
        connected.result = ConnectResult::kRefused;
        if (errno == EAGAIN || errno == EINTR) connected.result = ConnectResult::kBusy;
        if (errno == ENOMEM || errno == ENOBUFS) connected.result = ConnectResult::kShort;
        return connected;
    }
    bool allowed = PeerCredentials(connected.fd.get(), &connected.pid, &connected.uid);
    bool itself =
            PidOfEndpointName(name) == connected.pid && ListensUnder(connected.fd.get(), name);
    connected.result = allowed && itself ? ConnectResult::kConnected : ConnectResult::kRefused;
    return connected;
}

Connected Endpoint::ConnectForCall(Peer& peer) {
    for (;;) {
        Connected connected = ConnectTo(peer.name);
        if (connected.result == ConnectResult::kConnected) {
            // From here on its one user may wait in it.
            sys::Fcntl(connected.fd.get(), F_SETFL, 0);
            if (!SendHello(connected.fd.get(), ConnectionKind::kCall, name_)) {
                connected.result = ConnectResult::kRefused;
            }
        }
        if (connected.result != ConnectResult::kBusy || peer.IsDead()) return connected;
        poll(nullptr, 0, kConnectRetryMs);
    }
}

void Endpoint::AcceptAll() {
    for (int accepted = 0; accepted < kListenBacklog && AcceptOne(); ++accepted) {
    }
}

bool Endpoint::AcceptOne() {
    UniqueFd fd(sys::Accept4(listener_.get(), SOCK_CLOEXEC));
    if (!fd.ok() && (errno == EINTR || errno == ECONNABORTED)) return true;
    if (!fd.ok() && (errno == EMFILE || errno == ENFILE) && RefuseOne()) return true;
    if (!fd.ok()) {
        // Whatever the reason, what waits would wake this thread again at once.
        if (errno != EAGAIN) PauseListening();
        return false;
    }
    pid_t pid = 0;
    uid_t uid = 0;
    if (!PeerCredentials(fd.get(), &pid, &uid)) {
        Warn("Cutting a connection of pid %d uid %d: another user's.", pid, uid);
        return true;
    }
    MakeRoomForOneMore();
    auto newcomer = std::make_shared<Newcomer>(std::move(fd), pid, uid);
    newcomers_.push_back(newcomer);
    newcomer->Begin();
    return true;
}

bool Endpoint::RefuseOne() {
    int error = errno;
    if (!spare_.ok()) spare_ = SpareDescriptor();
    spare_.Reset();
    UniqueFd refused(sys::Accept4(listener_.get(), SOCK_CLOEXEC));
    pid_t pid = 0;
    uid_t uid = 0;
    bool taken = refused.ok();
    if (taken) PeerCredentials(refused.get(), &pid, &uid);
    refused.Reset();
    spare_ = SpareDescriptor();
    errno = error;
    if (!taken) return false;
    Warn("Cutting a connection of pid %d uid %d: no descriptor is left for it.", pid, uid);
    return true;
}

void Endpoint::PauseListening() {
    Housekeeper::Get().Change(listener_.get(), listener_key_, 0);
    Housekeeper::Get().RunLater(kListenAgainMs, [this] {
        Housekeeper::Get().Change(listener_.get(), listener_key_, EPOLLIN);
    });
}

// A process that connects again and again pushes out its own connections, not one of another
// process that is about to speak. What has come in meanwhile is read first.
void Endpoint::MakeRoomForOneMore() {
    if (newcomers_.size() < kMaxNewcomers) return;
    for (const auto& newcomer : std::vector(newcomers_.begin(), newcomers_.end()))
        newcomer->Read();
    if (newcomers_.size() < kMaxNewcomers) return;
    std::unordered_map<pid_t, size_t> counts;
    for (const auto& newcomer : newcomers_)
        ++counts[newcomer->pid()];
    auto oldest = newcomers_.front();
    for (const auto& newcomer : newcomers_) {
        if (counts[newcomer->pid()] > counts[oldest->pid()]) oldest = newcomer;
    }
    oldest->Cut("it has not said whose it is, and newer ones wait");
}

void Endpoint::ReadHellos(pid_t pid) {
    // Copied: who has said its hello leaves the list.
    for (const auto& newcomer : std::list<std::shared_ptr<Newcomer>>(newcomers_)) {
        if (newcomer->pid() == pid) newcomer->OnEvents(EPOLLIN);
    }
}

void Endpoint::DropNewcomer(Newcomer* newcomer) {
    newcomers_.remove_if(
            [newcomer](const std::shared_ptr<Newcomer>& one) { return one.get() == newcomer; });
}

void Endpoint::OnHello(Newcomer* newcomer, const HelloBody& hello) {
    std::string name(DecodeName(hello.name));
    auto kind = static_cast<ConnectionKind>(hello.kind);
    if (newcomer->has_received() != (kind == ConnectionKind::kOneway)) {
        return newcomer->Cut("a descriptor that nobody asked for, or none where one belongs");
    }
    if (kind == ConnectionKind::kControl) {
        OnControl(newcomer, name);
    } else {
        // One that others have only named has no connection yet, and nobody knows its user.
        const auto is_known = [](const auto& one) { return one != nullptr && one->pid() != 0; };
        auto peer = FindPeer(name);
        if (!is_known(peer)) {
            // Its control connection came first, and may have been accepted before its hello was
            // there.
            ReadHellos(newcomer->pid());
            peer = FindPeer(name);
        }
        if (!is_known(peer) || name == name_) return newcomer->Cut("it has no control connection");
        if (kind == ConnectionKind::kCall) {
            OnCall(newcomer, peer);
        } else if (kind == ConnectionKind::kOneway) {
            OnOneway(newcomer, peer, hello);
        } else {
            return newcomer->Cut("a kind of connection that does not exist");
        }
    }
}

void Endpoint::OnControl(Newcomer* newcomer, const std::string& name) {
    std::shared_ptr<Peer> peer;
    bool second_name = false;
    {
        std::lock_guard lock(mutex_);
        second_name = HasAnotherName(name, newcomer->pid());
        std::shared_ptr<Peer>& slot = peers_[name];
        if (slot == nullptr && !second_name) slot = std::make_shared<Peer>(name);
        peer = slot;
        if (slot == nullptr) peers_.erase(name);
    }
    if (second_name || name == name_) return newcomer->Cut("a process has one name");
    auto control = std::make_shared<ControlConnection>(newcomer->TakeFd(), peer);
    peer->Adopt(std::move(control), newcomer->pid(), newcomer->uid());
    DropNewcomer(newcomer);
}

// Of a peer that is cut off the log has said all there is to say.
void Endpoint::Refuse(Newcomer* newcomer, const Peer& peer, const char* reason) {
    peer.IsCut() ? DropNewcomer(newcomer) : newcomer->Cut(reason);
}

void Endpoint::OnCall(Newcomer* newcomer, const std::shared_ptr<Peer>& peer) {
    auto connection = std::make_shared<CallConnection>(peer, newcomer->TakeFd(), false);
    if (!peer->AddAccepted(connection))
        return Refuse(newcomer, *peer, "it has as many connections as a process may have");
    if (!connection->JoinPool()) peer->DropAccepted(connection);
    DropNewcomer(newcomer);
}

void Endpoint::OnOneway(Newcomer* newcomer, const std::shared_ptr<Peer>& peer,
                        const HelloBody& hello) {
    UniqueFd ring = newcomer->TakeReceived();
    auto receiver = std::make_shared<OnewayReceiver>(peer, newcomer->TakeFd());
    bool mapped = hello.ring_bytes == RingMemory::kTotalBytes && receiver->Map(ring.get());
    if (!mapped) return newcomer->Cut("memory that is not a ring");
    if (!peer->SetReceiver(receiver)) return Refuse(newcomer, *peer, "a second oneway connection");
    if (!receiver->JoinPool()) {
        // Nothing has been read: the peer brings the ring again.
        peer->DropReceiver();
        return newcomer->Cut("it cannot be watched");
    }
    DropNewcomer(newcomer);
}

bool SendFrameNow(int fd, FrameType type) {
    FrameHeader header{0, kFrameMagic, static_cast<uint16_t>(type)};
    return sys::Send(fd, &header, sizeof(header), MSG_DONTWAIT) ==
           static_cast<ssize_t>(sizeof(header));
}

bool SendHello(int fd, ConnectionKind kind, const std::string& name, int ring_file) {
    struct {
        FrameHeader header;
        HelloBody body;
    } hello{};
    hello.header = {sizeof(HelloBody), kFrameMagic, static_cast<uint16_t>(FrameType::kHello)};
    hello.body.version = kProtocolVersion;
    hello.body.kind = static_cast<uint32_t>(kind);
    memcpy(hello.body.name, name.data(), name.size());
    hello.body.ring_bytes = ring_file >= 0 ? RingMemory::kTotalBytes : 0;
    iovec part{&hello, sizeof(hello)};
    DescriptorSpace space;
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (ring_file >= 0) space.AttachOne(&message, ring_file);
    return sys::SendMsg(fd, &message, MSG_DONTWAIT) == static_cast<ssize_t>(sizeof(hello));
}

}  // namespace host
