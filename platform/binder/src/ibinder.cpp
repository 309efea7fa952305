#include <android-base/logging.h>
#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <android/binder_stability.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "binder.h"
#include "call_stack.h"
#include "caller.h"
#include "dump.h"
#include "endpoint.h"
#include "host.h"
#include "parcel.h"
#include "peer.h"
#include "runtime_folder.h"
#include "serve.h"

using host::AsLocal;
using host::AsProxy;
using host::LocalBinder;
using host::ProxyBinder;

namespace {

binder_status_t TransactLocal(LocalBinder* target, transaction_code_t code, AParcel* in,
                              AParcel* out) {
    if (in->SetPosition(0) != STATUS_OK) return STATUS_BAD_VALUE;
    binder_status_t status =
            code == host::kPingTransaction ? STATUS_OK : host::Dispatch(target, code, in, out);
    if (out->SetPosition(0) != STATUS_OK) return STATUS_BAD_VALUE;
    return status;
}

binder_status_t TransactRemote(ProxyBinder* target, transaction_code_t code, binder_flags_t flags,
                               const AParcel& in, AParcel* out) {
    if ((flags & FLAG_ONEWAY) == 0) return host::CallRemote(target, code, in, out);
    if (target->IsDead()) return STATUS_DEAD_OBJECT;
    return target->peer->oneway.Send(target->id, code, in);
}

}  // namespace

AIBinder_Class* AIBinder_Class_define(const char* descriptor, AIBinder_Class_onCreate on_create,
                                      AIBinder_Class_onDestroy on_destroy,
                                      AIBinder_Class_onTransact on_transact) {
    if (descriptor == nullptr || on_create == nullptr || on_destroy == nullptr ||
        on_transact == nullptr) {
        return nullptr;
    }
    return new AIBinder_Class{descriptor, on_create, on_destroy, on_transact};
}

void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump on_dump) {
    clazz->on_dump = on_dump;
}

void AIBinder_Class_setHandleShellCommand(AIBinder_Class* clazz,
                                          AIBinder_handleShellCommand on_command) {
    clazz->on_shell_command = on_command;
}

const char* AIBinder_Class_getDescriptor(const AIBinder_Class* clazz) {
    return clazz->descriptor.c_str();
}

AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args) {
    if (clazz == nullptr) return nullptr;
    return new LocalBinder(clazz, clazz->on_create(args));
}

bool AIBinder_isRemote(const AIBinder* binder) {
    return binder != nullptr && binder->is_remote();
}

bool AIBinder_isAlive(const AIBinder* binder) {
    if (binder == nullptr) return false;
    return !binder->is_remote() || !static_cast<const ProxyBinder*>(binder)->IsDead();
}

binder_status_t AIBinder_ping(AIBinder* binder) {
    if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
    if (!binder->is_remote()) return STATUS_OK;
    AParcel* in = host::ObtainParcel();
    binder_status_t status =
            host::CallRemote(AsProxy(binder), host::kPingTransaction, *in, nullptr);
    host::RecycleParcel(in);
    return status;
}

binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t count) {
    if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
    if (binder->is_remote()) return host::DumpRemote(AsProxy(binder), fd, args, count);
    const AIBinder_Class* clazz = binder->clazz.load();
    return clazz->on_dump == nullptr ? STATUS_OK : clazz->on_dump(binder, fd, args, count);
}

void AIBinder_incStrong(AIBinder* binder) {
    if (binder != nullptr) binder->IncStrong();
}

void AIBinder_decStrong(AIBinder* binder) {
    CHECK(binder != nullptr);
    binder->DecStrong();
}

int32_t AIBinder_debugGetRefCount(AIBinder* binder) {
    return binder == nullptr ? -1 : binder->StrongCount();
}

bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz) {
    if (binder == nullptr || clazz == nullptr) return false;
    if (!binder->is_remote()) return binder->clazz.load(std::memory_order_relaxed) == clazz;
    ProxyBinder* proxy = AsProxy(binder);
    if (proxy->descriptor != clazz->descriptor) return false;
    proxy->clazz.store(clazz, std::memory_order_release);
    return true;
}

const AIBinder_Class* AIBinder_getClass(AIBinder* binder) {
    return binder == nullptr ? nullptr : binder->clazz.load();
}

void* AIBinder_getUserData(AIBinder* binder) {
    LocalBinder* local = AsLocal(binder);
    return local == nullptr ? nullptr : local->user_data;
}

bool AIBinder_lt(const AIBinder* lhs, const AIBinder* rhs) {
    return std::less<const AIBinder*>()(lhs, rhs);
}

pid_t AIBinder_getCallingPid() {
    host::CallFrame* call = host::CurrentCall();
    return call == nullptr ? getpid() : call->peer->pid();
}

uid_t AIBinder_getCallingUid() {
    host::CallFrame* call = host::CurrentCall();
    return call == nullptr ? getuid() : call->peer->uid();
}

binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in) {
    if (binder == nullptr || in == nullptr) return STATUS_UNEXPECTED_NULL;
    const AIBinder_Class* clazz = binder->clazz.load(std::memory_order_acquire);
    if (clazz == nullptr) return STATUS_INVALID_OPERATION;
    *in = host::ObtainParcel();
    (*in)->binder = binder;
    binder_status_t status = host::WriteInterfaceName(*in, clazz);
    if (status == STATUS_OK) return STATUS_OK;
    host::RecycleParcel(*in);
    *in = nullptr;
    return status;
}

binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in,
                                  AParcel** out, binder_flags_t flags) {
    if (in == nullptr || *in == nullptr || out == nullptr) return STATUS_UNEXPECTED_NULL;
    AParcel* arguments = *in;
    *in = nullptr;
    *out = nullptr;
    binder_status_t status = STATUS_UNEXPECTED_NULL;
    AParcel* result = host::ObtainParcel();
    if (binder != nullptr && arguments->binder != binder) {
        status = STATUS_BAD_VALUE;  // prepared for another object
    } else if (binder != nullptr && (flags & ~static_cast<binder_flags_t>(FLAG_ONEWAY)) != 0) {
        status = STATUS_BAD_VALUE;
    } else if (binder != nullptr) {
        status = binder->is_remote()
                         ? TransactRemote(AsProxy(binder), code, flags, *arguments, result)
                         : TransactLocal(AsLocal(binder), code, arguments, result);
    }
    host::RecycleParcel(arguments);
    if (status == STATUS_OK) {
        *out = result;
    } else {
        host::RecycleParcel(result);
    }
    return status;
}

AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder) {
    if (binder == nullptr) return nullptr;
    binder->IncWeak();
    return new AIBinder_Weak{binder};
}

void AIBinder_Weak_delete(AIBinder_Weak* weak) {
    if (weak == nullptr) return;
    weak->binder->DecWeak();
    delete weak;
}

AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weak) {
    return weak != nullptr && weak->binder->TryIncStrong() ? weak->binder : nullptr;
}

AIBinder_Weak* AIBinder_Weak_clone(const AIBinder_Weak* weak) {
    return weak == nullptr ? nullptr : AIBinder_Weak_new(weak->binder);
}

bool AIBinder_Weak_lt(const AIBinder_Weak* lhs, const AIBinder_Weak* rhs) {
    const AIBinder* left = lhs == nullptr ? nullptr : lhs->binder;
    const AIBinder* right = rhs == nullptr ? nullptr : rhs->binder;
    return std::less<const AIBinder*>()(left, right);
}

void AIBinder_markVintfStability(AIBinder* binder) {
    if (binder != nullptr) binder->vintf_stable.store(true);
}

namespace host {

binder_status_t PublishContextObject(AIBinder* object, std::string* error) {
    LocalBinder* local = AsLocal(object);
    if (local == nullptr) {
        *error = "Only an object of this process can be the service manager's.";
        return STATUS_BAD_VALUE;
    }
    Endpoint& endpoint = Endpoint::Get();
    binder_status_t status = endpoint.Start(error);
    if (status == STATUS_OK) status = LockContext(endpoint.folder(), error);
    if (status != STATUS_OK) return status;
    SweepFolder(endpoint.folder());
    ExportTable::Get().EnterContextObject(local);
    if (WriteContextName(endpoint.folder(), endpoint.name())) return STATUS_OK;
    *error = "The runtime folder " + endpoint.folder() + " cannot be written to.";
    return STATUS_PERMISSION_DENIED;
}

binder_status_t GetContextObject(AIBinder** out, std::string* error) {
    Endpoint& endpoint = Endpoint::Get();
    binder_status_t status = endpoint.Start(error);
    if (status != STATUS_OK) return status;
    *error = "No service manager runs in the folder " + endpoint.folder() + ".";
    std::string name = ReadContextName(endpoint.folder());
    if (name.empty()) return STATUS_NAME_NOT_FOUND;
    if (name == endpoint.name()) {
        *out = ExportTable::Get().Find(kContextObjectId).release();
        return *out == nullptr ? STATUS_NAME_NOT_FOUND : STATUS_OK;
    }
    std::shared_ptr<Peer> peer = endpoint.GetPeer(name);
    constexpr ProxyKey kManager{kContextObjectId, "servicemanager"};
    // Nobody handed it over: the manager has not counted, and is told of no release.
    bool entered = false;
    BinderRef proxy = peer->proxies.ArriveUncounted(
            kManager, [&] { return new ProxyBinder(peer, kManager.id, kManager.descriptor); },
            &entered);
    if (proxy == nullptr || peer->IsDead()) return STATUS_NAME_NOT_FOUND;
    *out = proxy.release();
    return STATUS_OK;
}

bool IsHostAlive(AIBinder* binder) {
    ProxyBinder* proxy = AsProxy(binder);
    if (proxy == nullptr) return true;
    return !proxy->IsDead() && proxy->peer->IsConnectionOpen();
}

pid_t HostPid(AIBinder* binder) {
    ProxyBinder* proxy = AsProxy(binder);
    return proxy == nullptr || proxy->peer == nullptr ? 0 : proxy->peer->pid();
}

bool IsVintfStable(AIBinder* binder) {
    return binder != nullptr && binder->vintf_stable.load();
}

}  // namespace host
