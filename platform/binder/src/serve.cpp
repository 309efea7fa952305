#include "serve.h"

#include <android/binder_parcel.h>

#include <cstring>
#include <string_view>
#include <utility>

#include "call_connection.h"
#include "call_stack.h"
#include "dump.h"
#include "host.h"
#include "objects.h"
#include "parcel.h"
#include "peer.h"

namespace host {
namespace {

struct RecycleLater {
    void operator()(AParcel* parcel) const { RecycleParcel(parcel); }
};
using PooledParcel = std::unique_ptr<AParcel, RecycleLater>;

// Enters the references and copies the data. False: malformed.
bool ReceiveInto(AParcel* parcel, CallConnection* connection, const Message& message) {
    std::vector<AParcel::Object> objects;
    if (!DecodeObjects(connection->peer(), message, &objects)) {
        DropObjects(&objects);
        return false;
    }
    return parcel->Assign(message.data.data(), message.data.size(), std::move(objects));
}

binder_status_t Run(LocalBinder* target, const CallBody& call, const AParcel* in, AParcel* out) {
    if (target == nullptr) return STATUS_DEAD_OBJECT;
    if (call.code == kPingTransaction) return STATUS_OK;
    return Dispatch(target, call.code, in, out);
}

Served Answered(bool sent) {
    return sent ? Served::kAnswered : Served::kClosed;
}

}  // namespace

CallFrame*& CurrentCall() {
    thread_local CallFrame* innermost = nullptr;
    return innermost;
}

binder_status_t WriteInterfaceName(AParcel* parcel, const AIBinder_Class* clazz) {
    auto size = static_cast<int32_t>(clazz->descriptor.size());
    binder_status_t status = AParcel_writeInt32(parcel, size);
    return status != STATUS_OK ? status
                               : parcel->Write(clazz->descriptor.data(), clazz->descriptor.size());
}

binder_status_t Dispatch(LocalBinder* target, uint32_t code, const AParcel* in, AParcel* out) {
    const AIBinder_Class* clazz = target->clazz.load(std::memory_order_relaxed);
    int32_t size = 0;
    if (AParcel_readInt32(in, &size) != STATUS_OK || size < 0) return STATUS_BAD_TYPE;
    const uint8_t* name = in->Read(static_cast<size_t>(size));
    if (name == nullptr || static_cast<size_t>(size) != clazz->descriptor.size() ||
        memcmp(name, clazz->descriptor.data(), clazz->descriptor.size()) != 0) {
        return STATUS_BAD_TYPE;
    }
    return clazz->on_transact(target, code, in, out);
}

Served ServeCall(CallConnection* connection, Bytes body, bool nested) {
    auto call = DecodeCall(body);
    if (!call || call->body.depth == 0 || (call->body.flags & FLAG_ONEWAY) != 0)
        return Served::kMalformed;
    // What is called from within a call lies deeper than it, or the stack would have no bound.
    if (nested && call->body.depth <= OutgoingDepth()) return Served::kMalformed;
    PooledParcel in(ObtainParcel());
    if (!ReceiveInto(in.get(), connection, call->message)) return Served::kMalformed;
    BinderRef target = ExportTable::Get().Find(call->body.target);
    CallFrame frame;
    frame.connection = connection;
    frame.peer = connection->peer().get();
    frame.depth = call->body.depth;
    frame.may_defer = !nested;
    connection->NoteCaller(call->body.processor);
    if (call->body.code == kDumpTransaction && target != nullptr) {
        ServedCall served(&frame);
        return Answered(ServeDump(connection, AsLocal(target.get()), in.get(), nested));
    }
    PooledParcel out(ObtainParcel());
    binder_status_t status;
    {
        ServedCall served(&frame);
        status = Run(AsLocal(target.get()), call->body, in.get(), out.get());
    }
    if (frame.deferred) return Served::kDeferred;
    // The arguments go before the answer leaves: whoever has the answer finds nothing of them held
    // any more.
    in.reset();
    target.reset();
    if (!nested) connection->LookForNextCall();
    return Answered(connection->SendReply(status, out.get(), nested));
}

struct DeferredReply::State {
    std::shared_ptr<CallConnection> connection;
};

DeferredReply::DeferredReply(std::unique_ptr<State> state) : state_(std::move(state)) {}

DeferredReply::~DeferredReply() {
    if (state_ != nullptr) Send(STATUS_FAILED_TRANSACTION, nullptr);
}

bool DeferredReply::CallerIsAlive() const {
    return state_ != nullptr && !state_->connection->peer()->IsDead() &&
           state_->connection->IsOpen();
}

void DeferredReply::Send(binder_status_t status, const AParcel* reply) {
    auto connection = std::move(state_->connection);
    state_.reset();
    if (connection->SendReply(status, reply, /*wait=*/false)) {
        connection->Rearm();
    } else {
        connection->peer()->DropAccepted(connection);
    }
}

std::unique_ptr<DeferredReply> DeferReply() {
    CallFrame* frame = CurrentCall();
    if (frame == nullptr || !frame->may_defer || frame->deferred) return nullptr;
    frame->deferred = true;
    auto state = std::make_unique<DeferredReply::State>();
    state->connection = frame->connection->shared_from_this();
    return std::unique_ptr<DeferredReply>(new DeferredReply(std::move(state)));
}

}  // namespace host
