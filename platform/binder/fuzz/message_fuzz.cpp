// Everything that takes bytes of a peer apart: frames, calls, replies, tables of references,
// endpoint names, and a ring of shared memory. The first byte of the input chooses which.

#include <android-base/logging.h>
#include <stddef.h>
#include <stdint.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "frame.h"
#include "pool.h"
#include "ring.h"

namespace {

using host::Bytes;

// Reads every byte of a part, so that one outside of the input is found.
uint32_t Touch(Bytes bytes) {
    uint32_t sum = 0;
    for (uint8_t byte : bytes)
        sum = sum * 31 + byte;
    return sum;
}

Bytes AsBytes(std::string_view text) {
    return Bytes(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

void ReadTable(Bytes table, uint32_t count) {
    host::ObjectReader reader(table);
    for (uint32_t i = 0; i < count; ++i) {
        auto view = reader.Next();
        if (!view) return;
        CHECK(view->owner.size() < host::kEndpointNameSize);
        CHECK(view->descriptor.size() <= host::kMaxDescriptorBytes);
        Touch(AsBytes(view->owner));
        Touch(AsBytes(view->descriptor));
        host::PidOfEndpointName(view->owner);
    }
}

void ReadMessage(const host::Message& message) {
    CHECK(message.data.size() + message.objects.size() <= host::kMaxTransactionBytes);
    Touch(message.data);
    ReadTable(message.objects, message.object_count);
}

// Frame by frame, as a connection does.
void ReadFrames(Bytes rest) {
    while (auto header = host::DecodeHeader(rest)) {
        auto type = static_cast<host::FrameType>(header->type);
        CHECK(header->body_size <= host::MaxBodySize(type));
        if (rest.size() < sizeof(*header) + header->body_size) return;
        Bytes body = rest.subspan(sizeof(*header), header->body_size);
        if (type == host::FrameType::kCall) {
            if (auto call = host::DecodeCall(body)) ReadMessage(call->message);
        } else if (type == host::FrameType::kReply) {
            if (auto reply = host::DecodeReply(body)) ReadMessage(reply->message);
        } else if (type == host::FrameType::kHello) {
            auto hello = host::CopyOut<host::HelloBody>(body.data());
            host::PidOfEndpointName(host::DecodeName(hello.name));
        }
        rest = rest.subspan(sizeof(*header) + header->body_size);
    }
}

// The input is the position that the writer claims, then the memory from where the reader stands.
void ReadRing(Bytes input) {
    static auto* memory = new host::RingMemory;
    static host::UniqueFd* file = new host::UniqueFd;
    if (!memory->ok()) CHECK(memory->Create(file));
    uint32_t produced = 0;
    if (input.size() < sizeof(produced)) return;
    memcpy(&produced, input.data(), sizeof(produced));
    input = input.subspan(sizeof(produced));
    const size_t size = std::min(input.size(), host::RingMemory::kDataBytes);
    if (size != 0) memcpy(memory->data(), input.data(), size);
    memory->control().produced.store(produced);
    host::RingReader reader(memory);
    const uint8_t* body;
    size_t body_size;
    size_t taken = 0;
    while (reader.Front(&body, &body_size) == host::RingReader::Result::kRecord) {
        CHECK(body >= memory->data());
        CHECK(body + body_size <= memory->data() + host::RingMemory::kDataBytes);
        const std::string copy(reinterpret_cast<const char*>(body), body_size);
        if (auto call = host::DecodeCall(AsBytes(copy))) ReadMessage(call->message);
        reader.Pop();
        taken += body_size + 8;
        CHECK(taken <= produced);
    }
    if (size != 0) memset(memory->data(), 0, size);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const Bytes input(data + 1, size - 1);
    switch (data[0] % 6) {
        case 0:
            ReadFrames(input);
            break;
        case 1:
            if (auto call = host::DecodeCall(input)) ReadMessage(call->message);
            break;
        case 2:
            if (auto reply = host::DecodeReply(input)) ReadMessage(reply->message);
            break;
        case 3:
            ReadTable(input, UINT32_MAX);
            break;
        case 4:
            host::PidOfEndpointName({reinterpret_cast<const char*>(input.data()), input.size()});
            break;
        default:
            ReadRing(input);
    }
    return 0;
}
