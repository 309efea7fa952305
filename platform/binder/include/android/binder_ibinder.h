// Binder objects: local ones that this process implements, and proxies of objects in other
// processes.
//
// Threads: every function may be called from any thread at any time, also during static
// destruction. Only AIBinder_transact, AIBinder_ping and AIBinder_dump wait for another process. No
// callback runs while the layer holds a lock of its own.

#pragma once

#include <android/binder_parcel.h>
#include <android/binder_status.h>
#include <stdint.h>
#include <sys/cdefs.h>
#include <sys/types.h>

__BEGIN_DECLS

typedef uint32_t binder_flags_t;
enum {
    // The call returns when the message is accepted; there is no reply.
    FLAG_ONEWAY = 0x01,
};

typedef uint32_t transaction_code_t;
// The codes that an interface may use for its methods, both ends included.
enum {
    FIRST_CALL_TRANSACTION = 0x00000001,
    LAST_CALL_TRANSACTION = 0x00ffffff,
};

struct AIBinder;
typedef struct AIBinder AIBinder;
struct AIBinder_Weak;
typedef struct AIBinder_Weak AIBinder_Weak;
struct AIBinder_Class;
typedef struct AIBinder_Class AIBinder_Class;
struct AIBinder_DeathRecipient;
typedef struct AIBinder_DeathRecipient AIBinder_DeathRecipient;

// Classes: what all objects of one interface have in common; they are never destroyed.

// Makes the user data of a new local object out of the `args` of AIBinder_new, on its thread.
typedef void* (*AIBinder_Class_onCreate)(void* args);
// Ends the user data, on the thread that drops the last reference.
typedef void (*AIBinder_Class_onDestroy)(void* userData);
// Serves one call, on a pool thread or on a thread that waits for the calling process. `in` is read
// from behind the interface check. What is written to `out` is sent only if the result is STATUS_OK
// and the call is not oneway. Both parcels belong to the layer.
typedef binder_status_t (*AIBinder_Class_onTransact)(AIBinder* binder, transaction_code_t code,
                                                     const AParcel* in, AParcel* out);
// Writes the state of the object to `fd`, which stays the caller's.
typedef binder_status_t (*AIBinder_onDump)(AIBinder* binder, int fd, const char** args,
                                           uint32_t numArgs);
typedef binder_status_t (*AIBinder_handleShellCommand)(AIBinder* binder, int in, int out, int err,
                                                       const char** argv, uint32_t argc);

// The descriptor is copied. Null if any argument is null. One class per interface and library is
// usual; two with the same descriptor are two classes.
AIBinder_Class* AIBinder_Class_define(const char* interfaceDescriptor,
                                      AIBinder_Class_onCreate onCreate,
                                      AIBinder_Class_onDestroy onDestroy,
                                      AIBinder_Class_onTransact onTransact)
        __attribute__((warn_unused_result));
// To be called before the first object of the class is made.
void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump);
void AIBinder_Class_setHandleShellCommand(AIBinder_Class* clazz,
                                          AIBinder_handleShellCommand handleShellCommand);
// Belongs to the class.
const char* AIBinder_Class_getDescriptor(const AIBinder_Class* clazz);

// A new local object with one strong reference, which is the caller's.
AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args) __attribute__((warn_unused_result));

// True if the object lives in another process. Null is not remote.
bool AIBinder_isRemote(const AIBinder* binder);
// False once the death of the hosting process has been noticed; true for local objects.
bool AIBinder_isAlive(const AIBinder* binder);
// Asks the hosting process for a sign of life and waits for it. STATUS_OK for local objects.
binder_status_t AIBinder_ping(AIBinder* binder);
// Runs the object's dump and waits for its end. `fd` stays the caller's. On a proxy the other
// process writes into a descriptor of the layer's own, whose content is copied to `fd`.
binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs);

// Strong references keep a local object alive, and the remote object behind a proxy. incStrong
// needs a reference that already exists. Null is accepted by both.
void AIBinder_incStrong(AIBinder* binder);
// Dropping the last one of a local object runs onDestroy on this thread.
void AIBinder_decStrong(AIBinder* binder);
// For tests and diagnosis: stale as soon as it is returned. -1 for null.
int32_t AIBinder_debugGetRefCount(AIBinder* binder);

// Ties a proxy to the interface it is used through. True if the object is of the class (or already
// was of one with the same descriptor); false for null and for an object of another interface.
// Makes no call if the reference came with its descriptor.
bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz);
// Null until a class is associated.
const AIBinder_Class* AIBinder_getClass(AIBinder* binder);
// What onCreate made; null for proxies. Lives as long as the object.
void* AIBinder_getUserData(AIBinder* binder);

// A strict weak order of identities, the same as of the strong references.
bool AIBinder_lt(const AIBinder* lhs, const AIBinder* rhs);

// The process and user of the call that this thread serves, as the kernel says; those of this
// process outside of a call.
pid_t AIBinder_getCallingPid();
uid_t AIBinder_getCallingUid();

// Gives a parcel for the arguments of a call to `binder`, which must have a class. The caller ends
// it with AParcel_delete, or hands it to AIBinder_transact.
binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in);

// Calls the object and waits for the reply; with FLAG_ONEWAY it never waits. `*in` is taken over
// and set to null in every case. `*out` gets the reply, which the caller deletes; it stays null on
// an error and for a oneway call. STATUS_DEAD_OBJECT: the hosting process has died, perhaps after
// running the call. STATUS_FAILED_TRANSACTION: too large, or too much is pending towards that
// process. STATUS_UNKNOWN_TRANSACTION: the object has no such method. A local object is called on
// this thread.
binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in,
                                  AParcel** out, binder_flags_t flags);

// Runs on a thread of the layer when the hosting process has died. Once per link, or never.
typedef void (*AIBinder_DeathRecipient_onBinderDied)(void* cookie);
// The last callback of a link: after it the layer has no use for the cookie. Once per link that was
// accepted.
typedef void (*AIBinder_DeathRecipient_onBinderUnlinked)(void* cookie);

// The caller ends it with AIBinder_DeathRecipient_delete. Null if `onBinderDied` is null.
AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
        AIBinder_DeathRecipient_onBinderDied onBinderDied) __attribute__((warn_unused_result));
// To be called before the first link.
void AIBinder_DeathRecipient_setOnUnlinked(AIBinder_DeathRecipient* recipient,
                                           AIBinder_DeathRecipient_onBinderUnlinked onUnlinked);
// Ends all its links: each gets its unlink callback on this thread before the function returns,
// unless its death callback has been started; then the thread that runs that one calls unlink right
// after it, and this function does not wait. May be called from inside the recipient's own
// callbacks. Null is accepted.
void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient);

// STATUS_OK: the link exists and will have exactly one unlink callback. Otherwise neither callback
// is ever called for it: STATUS_UNEXPECTED_NULL for a missing binder or recipient,
// STATUS_INVALID_OPERATION for a local binder, STATUS_DEAD_OBJECT if the hosting process is known
// to be dead.
binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie);
// Ends the link made with the same three arguments, as deleting the recipient would.
// STATUS_NAME_NOT_FOUND if there is none, STATUS_DEAD_OBJECT if its death callback has been
// started.
binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie);

// Weak references: know an object without keeping it.

// Null for null. The caller ends it with AIBinder_Weak_delete.
AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder) __attribute__((warn_unused_result));
void AIBinder_Weak_delete(AIBinder_Weak* weakBinder);
// A new strong reference, or null if the object has none left.
AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder) __attribute__((warn_unused_result));
// A second weak reference to the same object, also when that is gone.
AIBinder_Weak* AIBinder_Weak_clone(const AIBinder_Weak* weakBinder)
        __attribute__((warn_unused_result));
// The order of the objects, also when they are gone.
bool AIBinder_Weak_lt(const AIBinder_Weak* lhs, const AIBinder_Weak* rhs);

__END_DECLS
