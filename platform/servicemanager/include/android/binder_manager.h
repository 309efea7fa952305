// Publishing and finding services by name.
//
// Threads: any, with no lock held that code released by a reference could need. Every function
// waits for the service manager while none runs, saying so once per call after a second; a service
// manager that dies during the call is waited for again. Only a runtime folder that cannot be used
// (its error is logged) makes a function fail instead of wait. None needs a thread pool.

#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_status.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

// Publishes a local object, which stays referenced from then on and is published again with every
// service manager to come. The name is 1 to 127 letters, digits and `_.-/`. EX_NONE: done, in place
// of what this process had published under the name. EX_ILLEGAL_ARGUMENT: null, an invalid name, a
// VINTF-stable object whose name no manifest declares, or a name that another live process holds.
// EX_SECURITY: the object of another process, or a user whom the service manager does not serve.
// EX_ILLEGAL_STATE: the runtime folder cannot be used, or this process or all together have
// published too many names. EX_TRANSACTION_FAILED: the service manager gave no answer that makes
// sense.
binder_exception_t AServiceManager_addService(AIBinder* binder, const char* instance)
        __attribute__((warn_unused_result));

// The service of that name, with a reference that is the caller's; the very object if this process
// published it. Null if nothing is published under the name now, or on an error.
AIBinder* AServiceManager_checkService(const char* instance) __attribute__((warn_unused_result));

// As AServiceManager_checkService, but waits up to 5 s for a service that a manifest declares.
AIBinder* AServiceManager_getService(const char* instance) __attribute__((warn_unused_result));

// As AServiceManager_checkService, but waits until the service is published, without a limit. Null
// on an error only.
AIBinder* AServiceManager_waitForService(const char* instance) __attribute__((warn_unused_result));

// Whether a manifest of the service manager declares the instance, published or not. False on an
// error.
bool AServiceManager_isDeclared(const char* instance) __attribute__((warn_unused_result));

__END_DECLS
