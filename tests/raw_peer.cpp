#include "raw_peer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "descriptors.h"
#include "frame.h"

namespace host::testing {
namespace {

using Clock = std::chrono::steady_clock;

bool WaitFor(int fd, short events, Clock::time_point end) {
    for (;;) {
        auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd wait{fd, events, 0};
        int ready = poll(&wait, 1, left < 0 ? 0 : static_cast<int>(left));
        if (ready >= 0 || errno != EINTR) return ready > 0;
    }
}

std::string PaddedBytes(std::string bytes) {
    bytes.resize(Padded(bytes.size()));
    return bytes;
}

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof(address.sun_path) - 1));
    return address;
}

std::string SocketOf(const std::string& folder, pid_t pid) {
    std::string found;
    Eventually([&] {
        std::error_code failure;
        for (const auto& entry : std::filesystem::directory_iterator(folder, failure)) {
            if (PidOfEndpointName(entry.path().filename().string()) == pid) found = entry.path();
        }
        return !found.empty();
    });
    return found;
}

}  // namespace

std::string RawFrame(FrameType type, const std::string& body) {
    std::string frame = RawBytes(FrameHeader{static_cast<uint32_t>(body.size()), kFrameMagic,
                                             static_cast<uint16_t>(type)});
    frame.append(body);
    return frame;
}

std::string RawHello(ConnectionKind kind, const std::string& name, uint32_t version,
                     uint64_t ring_bytes) {
    HelloBody hello{};
    hello.version = version;
    hello.kind = static_cast<uint32_t>(kind);
    memcpy(hello.name, name.data(), std::min(name.size(), sizeof(hello.name)));
    hello.ring_bytes = kind == ConnectionKind::kOneway ? ring_bytes : 0;
    return RawFrame(FrameType::kHello, RawBytes(hello));
}

std::string WordsOf(const RefId& id) {
    std::ostringstream words;
    for (uint32_t part : id.bits)
        words << part << ' ';
    words << id.place;
    return words.str();
}

RefId NameFrom(const std::string& words) {
    std::istringstream parts(words);
    RefId id;
    for (uint32_t& part : id.bits)
        parts >> part;
    parts >> id.place;
    return id;
}

std::string LetterData(int32_t value, bool with_object, size_t numbers) {
    std::string descriptor = "test.IObject";
    return RawBytes(static_cast<int32_t>(descriptor.size())) + descriptor + RawBytes(value) +
           RawBytes(with_object ? 0 : -1) + RawBytes(static_cast<int32_t>(numbers)) +
           std::string(4 * numbers, '\0');
}

std::string ObjectEntry(const RefId& id, uint32_t offset, OwnerKind kind, const std::string& owner,
                        const std::string& descriptor) {
    WireObject entry{};
    entry.offset = offset;
    entry.owner_kind = kind;
    entry.owner_size = static_cast<uint16_t>(owner.size());
    entry.descriptor_size = static_cast<uint32_t>(descriptor.size());
    entry.id = id;
    return RawBytes(entry) + PaddedBytes(owner + descriptor);
}

std::string RawCall::Body() const {
    CallBody body{target,
                  code,
                  flags,
                  static_cast<uint16_t>(depth),
                  0,
                  static_cast<uint32_t>(data.size()),
                  object_count,
                  static_cast<uint32_t>(objects.size())};
    return RawBytes(body) + PaddedBytes(data) + objects;
}

RawCall PassingOn(const RefId& target, const std::vector<ForeignObject>& objects, uint32_t code) {
    const auto count = static_cast<uint32_t>(objects.size());
    RawCall call{target, code, LetterData(0, true, count), "", count};
    for (uint32_t i = 0; i < count; ++i) {
        // The first is the letter's object; the numbers are the indexes of the others.
        const uint32_t offset = kLetterObjectOffset + (i == 0 ? 0 : 4 + 4 * i);
        memcpy(call.data.data() + offset, &i, sizeof(i));
        call.objects += ObjectEntry(objects[i].id, offset, OwnerKind::kOther, objects[i].owner);
    }
    return call;
}

std::string RawReply(int32_t status, const std::string& data, uint32_t flags) {
    ReplyBody body{status, flags, static_cast<uint32_t>(data.size()), 0, 0, 0};
    return RawFrame(FrameType::kReply, RawBytes(body) + PaddedBytes(data));
}

UniqueFd MemoryFile(size_t size, int seals) {
    UniqueFd file(memfd_create("raw", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    EXPECT_EQ(ftruncate(file.get(), static_cast<off_t>(size)), 0);
    EXPECT_EQ(fcntl(file.get(), F_ADD_SEALS, seals), 0);
    return file;
}

bool RawConnection::Send(const std::string& bytes, const std::vector<int>& descriptors) {
    const auto end = Clock::now() + kTestLimit;
    alignas(cmsghdr) char space[CMSG_SPACE(16 * sizeof(int))] = {};
    for (size_t sent = 0; sent < bytes.size();) {
        iovec part{const_cast<char*>(bytes.data()) + sent, bytes.size() - sent};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        if (sent == 0 && !descriptors.empty()) {
            message.msg_control = space;
            message.msg_controllen = CMSG_SPACE(descriptors.size() * sizeof(int));
            cmsghdr* header = CMSG_FIRSTHDR(&message);
            header->cmsg_level = SOL_SOCKET;
            header->cmsg_type = SCM_RIGHTS;
            header->cmsg_len = CMSG_LEN(descriptors.size() * sizeof(int));
            memcpy(CMSG_DATA(header), descriptors.data(), descriptors.size() * sizeof(int));
        }
        const ssize_t taken = sendmsg(fd_.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (taken < 0 && errno == EAGAIN && WaitFor(fd_.get(), POLLOUT, end)) continue;
        if (taken < 0) return false;
        sent += static_cast<size_t>(taken);
    }
    return true;
}

bool RawConnection::ReadMore(Clock::time_point end) {
    if (!WaitFor(fd_.get(), POLLIN, end)) return false;
    char buffer[65536];
    const ssize_t got = recv(fd_.get(), buffer, sizeof(buffer), MSG_DONTWAIT);
    if (got > 0) unread_.append(buffer, static_cast<size_t>(got));
    return got > 0;
}

std::optional<RawConnection::Received> RawConnection::Receive(std::chrono::milliseconds limit) {
    const auto end = Clock::now() + limit;
    for (;;) {
        if (unread_.size() >= sizeof(FrameHeader)) {
            FrameHeader header;
            memcpy(&header, unread_.data(), sizeof(header));
            if (unread_.size() >= sizeof(header) + header.body_size) {
                Received frame{static_cast<FrameType>(header.type),
                               unread_.substr(sizeof(header), header.body_size)};
                unread_.erase(0, sizeof(header) + header.body_size);
                return frame;
            }
        }
        if (!ReadMore(end)) return std::nullopt;
    }
}

bool RawConnection::WaitForEnd(std::chrono::milliseconds limit) {
    const auto end = Clock::now() + limit;
    while (ReadMore(end))
        unread_.clear();
    return Clock::now() < end;
}

std::string NextPeerName() {
    static std::atomic<unsigned> next{0};
    char name[kEndpointNameSize];
    snprintf(name, sizeof(name), "%d-%016x", getpid(), ++next);
    return name;
}

RawPeer::RawPeer(const std::string& folder, pid_t victim, const std::string& name)
        : path_(SocketOf(folder, victim)), name_(name.empty() ? NextPeerName() : name) {}

RawConnection RawPeer::Connect() const {
    sockaddr_un address = AddressOf(path_);
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0)
            << path_;
    return RawConnection(std::move(fd));
}

RawConnection RawPeer::Open(ConnectionKind kind, int descriptor) const {
    RawConnection connection = Connect();
    std::vector<int> descriptors;
    if (descriptor >= 0) descriptors.push_back(descriptor);
    connection.Send(RawHello(kind, name_), descriptors);
    return connection;
}

bool RawPeer::Begin() {
    control_.emplace(Open(ConnectionKind::kControl));
    auto answer = control_->Receive();
    return answer && answer->type == FrameType::kWelcome;
}

std::optional<ReplyBody> RawPeer::CallOnce(const RawCall& call) const {
    RawConnection connection = Open(ConnectionKind::kCall);
    connection.Send(call.Frame());
    auto answer = connection.Receive();
    if (!answer || answer->type != FrameType::kReply) return std::nullopt;
    ReplyBody body;
    memcpy(&body, answer->body.data(), sizeof(body));
    return body;
}

RawListener::RawListener(const std::string& folder)
        : name_(NextPeerName()),
          path_(folder + "/" + name_),
          fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = AddressOf(path_);
    EXPECT_EQ(bind(fd_.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(listen(fd_.get(), 16), 0);
}

RawListener::~RawListener() {
    unlink(path_.c_str());
}

bool RawListener::IsConnectedTo() const {
    return WaitFor(fd_.get(), POLLIN, Clock::now());
}

bool RawListener::Knock(std::vector<UniqueFd>* knocks) const {
    sockaddr_un address = AddressOf(path_);
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0)
        return false;
    knocks->push_back(std::move(fd));
    return true;
}

RawConnection RawListener::AcceptUnread() {
    EXPECT_TRUE(WaitFor(fd_.get(), POLLIN, Clock::now() + kTestLimit));
    return RawConnection(UniqueFd(accept4(fd_.get(), nullptr, nullptr, SOCK_CLOEXEC)));
}

RawConnection RawListener::Accept() {
    UniqueFd nothing;
    return Accept(&nothing);
}

RawConnection RawListener::Accept(UniqueFd* received) {
    RawConnection connection = AcceptUnread();
    char hello[sizeof(FrameHeader) + sizeof(HelloBody)];
    iovec part{hello, sizeof(hello)};
    DescriptorSpace space;
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    space.Attach(&message);
    EXPECT_TRUE(WaitFor(connection.fd(), POLLIN, Clock::now() + kTestLimit));
    EXPECT_EQ(recvmsg(connection.fd(), &message, 0), static_cast<ssize_t>(sizeof(hello)));
    EXPECT_TRUE(space.Take(message, received));
    return connection;
}

}  // namespace host::testing
