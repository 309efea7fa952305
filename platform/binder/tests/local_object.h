// A local binder object for tests that only need one to exist.
//
// Threads: any; the counter is atomic.

#pragma once

#include <android/binder_auto_utils.h>

#include <atomic>

// Each object counts down `alive` when it ends.
inline ndk::SpAIBinder MakeLocalObject(std::atomic<int>* alive) {
    static AIBinder_Class* const clazz = AIBinder_Class_define(
            "test.LocalObject", [](void* args) { return args; },
            [](void* userData) { --*static_cast<std::atomic<int>*>(userData); },
            [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
                return STATUS_UNKNOWN_TRANSACTION;
            });
    ++*alive;
    return ndk::SpAIBinder(AIBinder_new(clazz, alive));
}
