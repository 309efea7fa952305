#include "transport_hooks.h"

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

}  // namespace host::testing
