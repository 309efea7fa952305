// What the service manager and its clients need of the transport beyond the public functions.
// Any thread; nothing here waits for a peer.
#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_status.h>
#include <sys/types.h>

#include <memory>
#include <string>

namespace host {

// The folder that the processes of this host share: BINDER_HOST_DIR, else velmora-binder below
// XDG_RUNTIME_DIR, else below /run; made with mode 0700 if it is missing. On failure *error is a
// sentence that names it: STATUS_BAD_VALUE (path too long for a socket address),
// STATUS_PERMISSION_DENIED (another user's, or with other rights), STATUS_NAME_NOT_FOUND (cannot be
// made, or is no folder).
binder_status_t RuntimeFolder(std::string* path, std::string* error);

// For the service manager: makes `object` what GetContextObject answers in every process of the
// folder, until this process ends. STATUS_ALREADY_EXISTS if another live service manager serves the
// folder; else as RuntimeFolder, or STATUS_NO_MEMORY if this process cannot listen.
binder_status_t PublishContextObject(AIBinder* object, std::string* error);

// A new strong reference to the service manager's object. STATUS_NAME_NOT_FOUND if no service
// manager runs now; else as RuntimeFolder. The object is a new one after a restart of the service
// manager.
binder_status_t GetContextObject(AIBinder** out, std::string* error);

// Whether the process that hosts `binder` lives as far as the kernel shows now, also before its
// death has been noticed. True for local ones.
bool IsHostAlive(AIBinder* binder);

// The process that hosts a remote binder; 0 for a local one.
pid_t HostPid(AIBinder* binder);

// Whether it was marked by AIBinder_markVintfStability, in whichever process hosts it.
bool IsVintfStable(AIBinder* binder);

// The answer to a two-way call, taken over from the thread that served it. Dropped unsent it
// answers STATUS_FAILED_TRANSACTION. One thread at a time.
class DeferredReply {
  public:
    ~DeferredReply();
    // False once the caller's process or connection has gone.
    bool CallerIsAlive() const;
    // Once. `reply` is copied; null for none.
    void Send(binder_status_t status, const AParcel* reply);

    struct State;

  private:
    friend std::unique_ptr<DeferredReply> DeferReply();
    explicit DeferredReply(std::unique_ptr<State> state);

    std::unique_ptr<State> state_;
};

// Inside onTransact of a two-way call from another process: from here on the call is answered by
// the result alone, what onTransact returns and writes is ignored. Null for any other call.
std::unique_ptr<DeferredReply> DeferReply();

}  // namespace host
