#include "payload_codec.h"

#include <aidl/vendor/quorin/velmora_hub/SignalDescriptor.h>
#include <android/binder_parcel_utils.h>

#include <cstring>
#include <optional>
#include <stdexcept>
#include <vector>

#include "engagement_codec.h"
#include "json_field.h"

namespace velmoractl {

namespace {

using ::aidl::vendor::quorin::velmora_hub::SignalDescriptor;
using ndk::AParcelableHolder;
using Bytes = std::vector<uint8_t>;
// The engagement's, beside the overloads below.
using velmoractl::FromJson;
using velmoractl::ToJson;
using velmoractl::ToText;

// A holder in a parcel: its stability and the content's size, then the content.
constexpr int32_t kHolderHeader = 8;

// What a holder has in it, whatever its type.
struct Content {
    std::string type;
    size_t size = 0;
    std::optional<Bytes> bytes;  // nothing if it refers to binders
};

Content ContentOf(const AParcelableHolder& holder) {
    Content content;
    const ndk::ScopedAParcel parcel(AParcel_create());
    if (holder.writeToParcel(parcel.get()) != STATUS_OK) return content;
    const int32_t size = AParcel_getDataSize(parcel.get()) - kHolderHeader;
    if (size <= 0) return content;
    content.size = static_cast<size_t>(size);
    AParcel_setDataPosition(parcel.get(), kHolderHeader);
    if (ndk::AParcel_readString(parcel.get(), &content.type) != STATUS_OK) content.type = "?";
    Bytes bytes(content.size);
    if (AParcel_marshal(parcel.get(), bytes.data(), kHolderHeader, bytes.size()) == STATUS_OK)
        content.bytes = std::move(bytes);
    return content;
}

AParcelableHolder HolderOf(const Bytes& content) {
    const int32_t header[] = {ndk::STABILITY_VINTF, static_cast<int32_t>(content.size())};
    static_assert(sizeof(header) == kHolderHeader);
    Bytes bytes(kHolderHeader);
    std::memcpy(bytes.data(), header, sizeof(header));
    bytes.insert(bytes.end(), content.begin(), content.end());
    const ndk::ScopedAParcel parcel(AParcel_create());
    AParcelableHolder holder(ndk::STABILITY_VINTF);
    if (AParcel_unmarshal(parcel.get(), bytes.data(), bytes.size()) != STATUS_OK ||
        holder.readFromParcel(parcel.get()) != STATUS_OK) {
        throw std::invalid_argument("\"bytes\" are no payload");
    }
    return holder;
}

std::string HexOf(const Bytes& bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (const uint8_t byte : bytes)
        hex.append({kDigits[byte >> 4], kDigits[byte & 15]});
    return hex;
}

Bytes BytesOf(const std::string& hex) {
    if (hex.size() % 2 != 0 || hex.find_first_not_of("0123456789abcdefABCDEF") != hex.npos)
        throw std::invalid_argument("\"bytes\" are not in hex");
    Bytes bytes;
    for (size_t i = 0; i < hex.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

Json ToJson(const SignalDescriptor& payload) {
    return {{"signalId", payload.signalId}, {"tags", payload.tags}, {"ttlMs", payload.ttlMs}};
}

std::string ToText(const SignalDescriptor& payload) {
    return "descriptor of signal " + std::to_string(payload.signalId) + ", tags " +
           OneLine(payload.tags) + ", TTL " + std::to_string(payload.ttlMs) + " ms";
}

void FromJson(const Json& json, SignalDescriptor* payload) {
    RefuseOthers(json, {"signalId", "tags", "ttlMs"});
    ReadField(json, "signalId", &payload->signalId);
    ReadField(json, "tags", &payload->tags);
    ReadField(json, "ttlMs", &payload->ttlMs);
}

// Null if the holder has something else in it.
template <typename Type, typename Form>
auto Decode(const AParcelableHolder& holder, Form form)
        -> std::optional<decltype(form(std::declval<Type>()))> {
    std::optional<Type> value;
    if (holder.getParcelable(&value) != STATUS_OK || !value) return std::nullopt;
    return form(*value);
}

// In the form of the type that the holder turns out to have.
template <typename Form>
auto DecodeKnown(const AParcelableHolder& holder, Form form) {
    auto result = Decode<Engagement>(holder, form);
    return result ? result : Decode<SignalDescriptor>(holder, form);
}

// False if the name is not the type's, in full or its last part.
template <typename Type>
bool Encode(const Json& json, const std::string& type, AParcelableHolder* holder) {
    const std::string known = Type::descriptor;
    if (type != known && type != known.substr(known.rfind('.') + 1)) return false;
    Type payload;
    FromJson(json.at("value"), &payload);
    holder->setParcelable(payload);
    return true;
}

}  // namespace

Json PayloadToJson(const AParcelableHolder& payload) {
    const Content content = ContentOf(payload);
    if (content.size == 0) return nullptr;
    Json json = {{"type", content.type}, {"size", content.size}};
    if (const auto value = DecodeKnown(payload, [](const auto& known) { return ToJson(known); })) {
        json["value"] = *value;
    } else if (content.bytes) {
        json["bytes"] = HexOf(*content.bytes);
    }
    return json;
}

std::string PayloadToText(const AParcelableHolder& payload) {
    if (const auto text = DecodeKnown(payload, [](const auto& known) { return ToText(known); }))
        return *text;
    const Content content = ContentOf(payload);
    if (content.size == 0) return "no payload";
    const std::string quoted = OneLine(content.type);
    return quoted.substr(1, quoted.size() - 2) + ", " + std::to_string(content.size) + " bytes";
}

AParcelableHolder PayloadFromJson(const Json& json) {
    AParcelableHolder holder(ndk::STABILITY_VINTF);
    if (json.is_null()) return holder;
    if (!json.is_object()) throw std::invalid_argument("\"payload\" is no object");
    RefuseOthers(json, {"type", "size", "value", "bytes"});
    if (json.contains("bytes")) return HolderOf(BytesOf(json.at("bytes").get<std::string>()));
    const std::string type = json.at("type").get<std::string>();
    if (!Encode<Engagement>(json, type, &holder) && !Encode<SignalDescriptor>(json, type, &holder))
        throw std::invalid_argument("a payload of type " + OneLine(type) + " needs \"bytes\"");
    return holder;
}

}  // namespace velmoractl
