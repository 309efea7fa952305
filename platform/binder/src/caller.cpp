#include "caller.h"

#include <utility>

#include "call_connection.h"
#include "call_stack.h"
#include "limits.h"
#include "objects.h"
#include "parcel.h"
#include "peer.h"
#include "serve.h"
#include "wake_up_place.h"
#include "warning.h"

namespace host {
namespace {

// The connection on which a thread of `peer` waits for this one, if one does: a call on it is run
// by that thread, however busy the rest of the process is.
CallConnection* WaitingConnection(const Peer* peer) {
    for (CallFrame* frame = CurrentCall(); frame != nullptr; frame = frame->outer) {
        if (frame->peer == peer && frame->connection != nullptr && !frame->deferred)
            return frame->connection;
    }
    return nullptr;
}

// False: malformed. `out` may be null.
bool Unpack(CallConnection* connection, Bytes body, AParcel* out, binder_status_t* status) {
    auto reply = DecodeReply(body);
    if (!reply) return false;
    std::vector<AParcel::Object> objects;
    bool good = DecodeObjects(connection->peer(), reply->message, &objects);
    if (good && out != nullptr) {
        good = out->Assign(reply->message.data.data(), reply->message.data.size(),
                           std::move(objects));
        objects.clear();
    }
    DropObjects(&objects);
    *status = reply->body.status;
    return good;
}

struct Outcome {
    binder_status_t status;
    bool reusable;     // the connection is as it was before the call
    bool sent = true;  // the peer may have it
};

Outcome AwaitReply(CallConnection* connection, AParcel* out, UniqueFd* memory) {
    for (;;) {
        FrameType type;
        Bytes body;
        CallConnection::Result result =
                connection->Read(CallConnection::Wait::kUntilThere, &type, &body, memory);
        if (result == CallConnection::Result::kClosed) return {STATUS_DEAD_OBJECT, false};
        if (result == CallConnection::Result::kFrame && type == FrameType::kReply) {
            binder_status_t status;
            if (Unpack(connection, body, out, &status))
                return {connection->HasLostDescriptor() ? STATUS_NO_MEMORY : status, true};
            result = CallConnection::Result::kMalformed;
        }
        if (result == CallConnection::Result::kFrame && type == FrameType::kCall) {
            Served served = ServeCall(connection, body, /*nested=*/true);
            if (served == Served::kClosed) return {STATUS_DEAD_OBJECT, false};
            if (served == Served::kAnswered) continue;
        }
        connection->peer()->Cut("malformed answer to a call");
        return {STATUS_DEAD_OBJECT, false};
    }
}

Outcome CallOn(CallConnection* connection, bool nested, const CallBody& call, const AParcel& in,
               const Buffer& objects, AParcel* out, UniqueFd* memory) {
    CallConnection::Parts parts{FrameType::kCall, &call, sizeof(call), Bytes(in.data(), in.size()),
                                Bytes(objects.data(), objects.size())};
    if (!connection->BeginCall(nested) || !connection->Send(parts, /*wait=*/true))
        return {STATUS_DEAD_OBJECT, false, false};
    const Outcome outcome = AwaitReply(connection, out, memory);
    connection->EndCall();
    return outcome;
}

}  // namespace

binder_status_t CallRemote(ProxyBinder* target, uint32_t code, const AParcel& in, AParcel* out,
                           UniqueFd* memory) {
    if (target->IsDead() || IsForkedChild()) return STATUS_DEAD_OBJECT;
    const std::shared_ptr<Peer>& peer = target->peer;
    if (target->acquiring.load(std::memory_order_acquire) != 0) peer->AwaitAcquired(*target);
    uint32_t depth = OutgoingDepth();
    if (depth > kMaxNestingDepth) {
        Warn("A call to pid %d uid %d is not made: it is nested deeper than %u.", peer->pid(),
             peer->uid(), kMaxNestingDepth);
        return STATUS_FAILED_TRANSACTION;
    }
    CallConnection* connection = WaitingConnection(peer.get());
    std::shared_ptr<CallConnection> own;
    if (connection == nullptr) {
        binder_status_t taken = peer->TakeConnection(&own);
        connection = own.get();
        if (connection == nullptr) return taken;
    }
    ObjectEncoder encoder(peer.get(), Direction::kCall);
    Buffer objects;
    Outcome outcome{encoder.Encode(in, &objects), true, true};
    if (outcome.status == STATUS_OK) {
        CallBody call{target->id,
                      code,
                      0,
                      static_cast<uint16_t>(depth),
                      NoteProcessor(),
                      static_cast<uint32_t>(in.size()),
                      static_cast<uint32_t>(in.objects().size()),
                      static_cast<uint32_t>(objects.size())};
        outcome = CallOn(connection, /*nested=*/own == nullptr, call, in, objects, out, memory);
    }
    if (!outcome.sent) encoder.Undo();
    if (own != nullptr) peer->GiveBackConnection(std::move(own), outcome.reusable);
    return outcome.status;
}

}  // namespace host
