// How long the interface of a binder object stays as it is.
//
// Threads: any; to be called before the object is first handed to somebody else.

#pragma once

#include <android/binder_ibinder.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

// Marks a local object as one of a frozen interface that a device manifest declares. Null is
// ignored.
void AIBinder_markVintfStability(AIBinder* binder);

__END_DECLS
