// Takes received bytes apart. Nothing here trusts a length before it has been checked against the
// bytes that are there, allocates, or touches a descriptor. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "wire.h"

namespace host {

using Bytes = std::span<const uint8_t>;

// The header at the start of `bytes`; nullopt if magic, type or size cannot be right. Needs 8
// bytes.
std::optional<FrameHeader> DecodeHeader(Bytes bytes);

// The largest body that a frame of this type may have.
size_t MaxBodySize(FrameType type);

struct Message {
    Bytes data;
    Bytes objects;
    uint32_t object_count = 0;
};

struct CallMessage {
    CallBody body;
    Message message;
};

struct ReplyMessage {
    ReplyBody body;
    Message message;
};

// Null if the parts do not fill the body exactly or exceed the limit of a transaction.
std::optional<CallMessage> DecodeCall(Bytes body);
std::optional<ReplyMessage> DecodeReply(Bytes body);

// One entry of a table of references. The views point into the decoded bytes.
struct ObjectView {
    WireObject entry;
    std::string_view owner;
    std::string_view descriptor;
};

// Reads a table of references in order. Next gives null at the end and after the first bad entry;
// AtEnd tells the two apart.
class ObjectReader {
  public:
    explicit ObjectReader(Bytes table) : rest_(table) {}

    std::optional<ObjectView> Next();
    bool AtEnd() const { return rest_.empty(); }

  private:
    Bytes rest_;
};

// A name as it travels in a fixed field: what stands before the first zero; empty if there is none.
std::string_view DecodeName(const char (&field)[kEndpointNameSize]);

// "<pid>-<16 hex digits>", the pid as given; nullopt for anything else.
std::optional<int> PidOfEndpointName(std::string_view name);

}  // namespace host
