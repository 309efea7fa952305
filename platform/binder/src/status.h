// Definition of the status behind the public functions.
//
// Threads: never changes once made.

#pragma once

#include <android/binder_status.h>

// The message lies behind the object in the same allocation, or is a constant.
struct AStatus {
    binder_exception_t exception;
    // The service-specific number or the binder_status_t, according to the exception; else 0.
    int32_t error;
    // Never null.
    const char* message;
};
