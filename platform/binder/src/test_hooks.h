// Switches for tests. Nothing but platform/testing and tests includes this header.
#pragma once

namespace host::test {

// The n-th call, counted from now and from 1, of the transport's system call `name` ("sendmsg",
// "accept4", ...) fails once with `error`. n = 0 takes the switch back. One switch at a time. Any
// thread.
void FailSystemCall(const char* name, int n, int error);

// Whether the call armed last has failed by now.
bool SystemCallFaultFired();

// While held, no unlink callback is called: the threads that would call one wait in front of it.
void HoldUnlinkCallbacks();
void ReleaseUnlinkCallbacks();

// How many threads wait in front of an unlink callback.
int WaitingUnlinkCallbacks();

}  // namespace host::test
