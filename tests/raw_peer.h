// A process that speaks the wire protocol by hand, also wrongly. Nothing here uses the layer: the
// process must not make binder calls of its own towards the same victim. One thread.
#pragma once

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "eventually.h"
#include "fd.h"
#include "ring.h"
#include "wire.h"

namespace host::testing {

template <typename T>
std::string RawBytes(const T& value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof(value));
}

// The same bytes, with that number at the offset.
inline std::string WithNumber(std::string bytes, size_t offset, uint32_t number) {
    memcpy(bytes.data() + offset, &number, sizeof(number));
    return bytes;
}

std::string RawFrame(FrameType type, const std::string& body);
std::string RawHello(ConnectionKind kind, const std::string& name,
                     uint32_t version = kProtocolVersion,
                     uint64_t ring_bytes = RingMemory::kTotalBytes);

// A name as words for a command line, and back.
std::string WordsOf(const RefId& id);
RefId NameFrom(const std::string& words);

// What a call to a test object carries; the object, if any, has its index at this offset.
std::string LetterData(int32_t value, bool with_object = false, size_t numbers = 0);
inline constexpr uint32_t kLetterObjectOffset = 20;

// One entry of a table of references.
std::string ObjectEntry(const RefId& id, uint32_t offset = kLetterObjectOffset,
                        OwnerKind kind = OwnerKind::kSender, const std::string& owner = "",
                        const std::string& descriptor = "test.IObject");

struct RawCall {
    RefId target;
    uint32_t code = 1;
    std::string data = LetterData(7);
    std::string objects = {};
    uint32_t object_count = 0;
    uint32_t depth = 1;
    uint32_t flags = 0;

    // The body, its parts padded as they must be.
    std::string Body() const;
    std::string Frame() const { return RawFrame(FrameType::kCall, Body()); }
};

struct ForeignObject {
    RefId id;
    std::string owner;
};

// A letter to a test object with references to objects of third processes.
RawCall PassingOn(const RefId& target, const std::vector<ForeignObject>& objects,
                  uint32_t code = 1);

std::string RawReply(int32_t status, const std::string& data, uint32_t flags = 0);

// A memory file of that size with those seals.
UniqueFd MemoryFile(size_t size, int seals);

class RawConnection {
  public:
    explicit RawConnection(UniqueFd fd) : fd_(std::move(fd)) {}

    // False once the other side has ended it, or does not take everything within the limit.
    bool Send(const std::string& bytes, const std::vector<int>& descriptors = {});

    struct Received {
        FrameType type;
        std::string body;
    };
    // The next whole frame; nothing at the end or when the time is up.
    std::optional<Received> Receive(std::chrono::milliseconds limit = kTestLimit);

    // Reads to the end; false if it does not come in time.
    bool WaitForEnd(std::chrono::milliseconds limit = kTestLimit);

    int fd() const { return fd_.get(); }
    void Close() { fd_.Reset(); }

  private:
    // False at the end or when the time is up.
    bool ReadMore(std::chrono::steady_clock::time_point end);

    UniqueFd fd_;
    std::string unread_;
};

class RawPeer {
  public:
    // Finds the victim's socket in the folder; does not connect yet. Without a name it gets one of
    // its own.
    RawPeer(const std::string& folder, pid_t victim, const std::string& name = "");

    const std::string& name() const { return name_; }

    // The victim's socket.
    const std::string& path() const { return path_; }

    // A connection that has said nothing.
    RawConnection Connect() const;
    // One that has said hello.
    RawConnection Open(ConnectionKind kind, int descriptor = -1) const;
    // Opens the control connection; true when the victim has answered.
    bool Begin();
    RawConnection& control() { return *control_; }

    // Sends a call on a fresh connection and takes its answer: status and data.
    std::optional<ReplyBody> CallOnce(const RawCall& call) const;

  private:
    std::string path_;
    std::string name_;
    std::optional<RawConnection> control_;
};

// Where a peer listens, to be called by the victim.
class RawListener {
  public:
    explicit RawListener(const std::string& folder);
    ~RawListener();
    RawListener(const RawListener&) = delete;
    RawListener& operator=(const RawListener&) = delete;

    const std::string& name() const { return name_; }
    // Whether somebody has connected who was not accepted.
    bool IsConnectedTo() const;
    // Connects to itself; false if its queue is full.
    bool Knock(std::vector<UniqueFd>* knocks) const;
    // The next connection, whatever it says.
    RawConnection AcceptUnread();
    // The next connection, its hello taken; what came along goes to `*received`.
    RawConnection Accept(UniqueFd* received);
    // The same for one that brings nothing.
    RawConnection Accept();

  private:
    const std::string name_;
    const std::string path_;
    UniqueFd fd_;
};

// A name that no other peer of this process has.
std::string NextPeerName();

}  // namespace host::testing
