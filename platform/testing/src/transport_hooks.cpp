#include "transport_hooks.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include "eventually.h"
#include "test_hooks.h"

namespace host::testing {

FailNthCall::FailNthCall(const char* name, int n, int error) {
    test::FailSystemCall(name, n, error);
}

FailNthCall::~FailNthCall() {
    test::FailSystemCall("", 0, 0);
}

bool FailNthCall::fired() const {
    return test::SystemCallFaultFired();
}

HeldUnlinks::HeldUnlinks() {
    test::HoldUnlinkCallbacks();
}

HeldUnlinks::~HeldUnlinks() {
    test::ReleaseUnlinkCallbacks();
}

bool HeldUnlinks::WaitForHeld(int count) const {
    return Eventually([count] { return test::WaitingUnlinkCallbacks() == count; });
}

PoolEnd::PoolEnd() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "no pipe for the end of the pool";
        abort();
    }
    read_end_ = ends[0];
    write_end_ = ends[1];
    setenv("BINDER_HOST_END_FD", std::to_string(read_end_).c_str(), 1);
}

PoolEnd::~PoolEnd() {
    End();
    unsetenv("BINDER_HOST_END_FD");
    // The read end stays open: a join that has not returned yet may still look at it.
}

void PoolEnd::End() {
    if (write_end_ >= 0) close(write_end_);
    write_end_ = -1;
}

}  // namespace host::testing
