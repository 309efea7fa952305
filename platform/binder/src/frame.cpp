#include "frame.h"

#include <algorithm>
#include <charconv>

#include "limits.h"

namespace host {
namespace {

constexpr size_t kEndpointHexDigits = 16;

template <typename Body>
std::optional<Message> DecodeMessage(Bytes body, const Body& fixed) {
    Bytes rest = body.subspan(sizeof(Body));
    size_t data_size = fixed.data_size;
    size_t objects_size = fixed.objects_size;
    if (data_size > kMaxTransactionBytes || objects_size > kMaxTransactionBytes)
        return std::nullopt;
    if (data_size + objects_size > kMaxTransactionBytes) return std::nullopt;
    if (rest.size() != Padded(data_size) + objects_size) return std::nullopt;
    if (fixed.object_count > objects_size / sizeof(WireObject)) return std::nullopt;
    return Message{rest.first(data_size), rest.subspan(Padded(data_size)), fixed.object_count};
}

}  // namespace

size_t MaxBodySize(FrameType type) {
    switch (type) {
        case FrameType::kHello:
            return sizeof(HelloBody);
        case FrameType::kWelcome:
        case FrameType::kYield:
        case FrameType::kMailbox:
        case FrameType::kKnock:
            return 0;
        case FrameType::kCall:
            return sizeof(CallBody) + kMaxTransactionBytes + sizeof(uint32_t);
        case FrameType::kReply:
            return sizeof(ReplyBody) + kMaxTransactionBytes + sizeof(uint32_t);
        case FrameType::kAcquire:
        case FrameType::kAcquired:
            return sizeof(AcquireBody);
        case FrameType::kRelease:
            return sizeof(ReleaseBody);
        case FrameType::kSettled:
            return sizeof(SettledBody);
    }
    return 0;
}

std::optional<FrameHeader> DecodeHeader(Bytes bytes) {
    if (bytes.size() < sizeof(FrameHeader)) return std::nullopt;
    auto header = CopyOut<FrameHeader>(bytes.data());
    if (header.magic != kFrameMagic) return std::nullopt;
    if (header.type < static_cast<uint16_t>(FrameType::kHello) ||
        header.type > static_cast<uint16_t>(FrameType::kKnock)) {
        return std::nullopt;
    }
    auto type = static_cast<FrameType>(header.type);
    size_t max = MaxBodySize(type);
    bool variable = type == FrameType::kCall || type == FrameType::kReply;
    size_t min = type == FrameType::kCall    ? sizeof(CallBody)
                 : type == FrameType::kReply ? sizeof(ReplyBody)
                                             : max;
    if (header.body_size < min || header.body_size > max) return std::nullopt;
    if (variable && header.body_size % sizeof(uint32_t) != 0) return std::nullopt;
    return header;
}

std::optional<CallMessage> DecodeCall(Bytes body) {
    if (body.size() < sizeof(CallBody)) return std::nullopt;
    auto fixed = CopyOut<CallBody>(body.data());
    if (fixed.depth > kMaxNestingDepth) return std::nullopt;
    auto message = DecodeMessage(body, fixed);
    if (!message) return std::nullopt;
    return CallMessage{fixed, *message};
}

std::optional<ReplyMessage> DecodeReply(Bytes body) {
    if (body.size() < sizeof(ReplyBody)) return std::nullopt;
    auto fixed = CopyOut<ReplyBody>(body.data());
    auto message = DecodeMessage(body, fixed);
    if (!message) return std::nullopt;
    return ReplyMessage{fixed, *message};
}

std::optional<ObjectView> ObjectReader::Next() {
    if (rest_.size() < sizeof(WireObject)) return std::nullopt;
    auto entry = CopyOut<WireObject>(rest_.data());
    bool known_kind = entry.owner_kind == OwnerKind::kSender ||
                      entry.owner_kind == OwnerKind::kReceiver ||
                      entry.owner_kind == OwnerKind::kOther;
    bool names_owner = entry.owner_kind == OwnerKind::kOther;
    if (!known_kind || names_owner != (entry.owner_size != 0)) return std::nullopt;
    if (entry.owner_size >= kEndpointNameSize || entry.descriptor_size > kMaxDescriptorBytes) {
        return std::nullopt;
    }
    size_t names = size_t{entry.owner_size} + entry.descriptor_size;
    Bytes behind = rest_.subspan(sizeof(WireObject));
    if (behind.size() < Padded(names)) return std::nullopt;
    const char* text = reinterpret_cast<const char*>(behind.data());
    ObjectView view{
            entry, {text, entry.owner_size}, {text + entry.owner_size, entry.descriptor_size}};
    rest_ = behind.subspan(Padded(names));
    return view;
}

std::string_view DecodeName(const char (&field)[kEndpointNameSize]) {
    const char* end = std::find(field, field + kEndpointNameSize, '\0');
    if (end == field + kEndpointNameSize) return {};
    return {field, static_cast<size_t>(end - field)};
}

std::optional<int> PidOfEndpointName(std::string_view name) {
    size_t dash = name.find('-');
    if (dash == std::string_view::npos || name.size() != dash + 1 + kEndpointHexDigits)
        return std::nullopt;
    std::string_view hex = name.substr(dash + 1);
    bool all_hex = std::all_of(hex.begin(), hex.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
    });
    int pid = 0;
    auto [end, error] = std::from_chars(name.data(), name.data() + dash, pid);
    if (!all_hex || error != std::errc() || end != name.data() + dash || pid <= 0)
        return std::nullopt;
    return pid;
}

}  // namespace host
