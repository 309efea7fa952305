// What two processes say to each other: frames of a header and a body, little-endian. Values only;
// a body is read by copying it out, never in place.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>

namespace host {

using RandomBits = std::array<uint32_t, 4>;

// Names an exported object. The bits are the right to call it; the service manager's own object is
// the one exception, whose bits everybody knows. The place only says where its owner finds it.
struct RefId {
    RandomBits bits{};
    uint32_t place = 0;

    friend bool operator==(const RefId& a, const RefId& b) = default;
};
static_assert(sizeof(RefId) == 20);

inline constexpr RefId kContextObjectId = {};

// Spreads names by a secret of this process: names of other processes' objects are chosen by them,
// and must not be able to meet in one bucket.
struct RefIdHash {
    size_t operator()(const RefId& id) const;
};

inline constexpr uint16_t kFrameMagic = 0x4256;
inline constexpr uint32_t kProtocolVersion = 6;
inline constexpr size_t kEndpointNameSize = 40;  // with the terminating zeros

enum class FrameType : uint16_t {
    kHello = 1,     // first frame of every connection: HelloBody
    kWelcome = 2,   // the acceptor's answer to a control connection's hello: no body
    kYield = 3,     // instead of it: the acceptor's own attempt wins: no body
    kCall = 4,      // CallBody, data, objects
    kReply = 5,     // ReplyBody, data, objects
    kAcquire = 6,   // to the owner, from who was handed a reference by a third process: AcquireBody
    kAcquired = 7,  // the owner's answer, in the order of the requests: AcquireBody
    kRelease = 8,   // to the owner: ReleaseBody
    kSettled = 9,   // to who passed on a reference: its own is no longer needed: SettledBody
    kMailbox = 10,  // from who opened a call connection, once: the memory of a mailbox comes along
    kKnock = 11,    // something has been put into the mailbox: no body
};

struct FrameHeader {
    uint32_t body_size;
    uint16_t magic;
    uint16_t type;
};
static_assert(sizeof(FrameHeader) == 8);

enum class ConnectionKind : uint32_t { kControl = 1, kCall = 2, kOneway = 3 };

struct HelloBody {
    uint32_t version;
    uint32_t kind;
    char name[kEndpointNameSize];  // the sender's endpoint
    uint64_t ring_bytes;           // kOneway: size of the memory that comes with the frame
};
static_assert(sizeof(HelloBody) == 56);

struct CallBody {
    RefId target;
    uint32_t code;
    uint32_t flags;
    uint16_t depth;
    uint16_t processor;  // two-way: the ProcessorNote of the caller, a hint
    uint32_t data_size;
    uint32_t object_count;
    uint32_t objects_size;
};
static_assert(sizeof(CallBody) == 44);

inline constexpr uint32_t kReplyCarriesMemory =
        1;  // a sealed memory file; the data is its size as a uint64

struct ReplyBody {
    int32_t status;
    uint32_t flags;
    uint32_t data_size;
    uint32_t object_count;
    uint32_t objects_size;
    uint32_t reserved;
};
static_assert(sizeof(ReplyBody) == 24);

struct AcquireBody {
    RefId id;
    uint32_t granted;  // in the answer
};

struct ReleaseBody {
    RefId id;
    uint32_t arrivals;  // how many hand-overs this settles
    uint64_t after;     // where the sender's oneway ring ended then
};

struct SettledBody {
    char owner[kEndpointNameSize];
    RefId id;
};

enum class OwnerKind : uint8_t { kSender = 1, kReceiver = 2, kOther = 3 };

inline constexpr uint8_t kObjectIsVintf = 1;
inline constexpr uint8_t kObjectWantsSettled = 2;

// One entry of a message's table of references, followed by the owner's name (kOther only) and the
// interface descriptor, padded to four bytes.
struct WireObject {
    uint32_t offset;  // where in the data its index stands
    OwnerKind owner_kind;
    uint8_t flags;
    uint16_t owner_size;
    uint32_t descriptor_size;
    RefId id;
};
static_assert(sizeof(WireObject) == 32);

constexpr size_t Padded(size_t size) {
    return (size + 3) & ~size_t{3};
}

template <typename T>
T CopyOut(const uint8_t* bytes) {
    T value;
    memcpy(&value, bytes, sizeof(T));
    return value;
}

}  // namespace host
