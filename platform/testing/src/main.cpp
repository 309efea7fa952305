// The main() of test programs that hold helpers beside their tests.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "helper.h"

int main(int argc, char** argv) {
    // Before gtest sees the arguments: a helper's are its own.
    if (const auto status = host::testing::RunRequestedHelper(argc, argv)) return *status;
    // Writing to a helper that was killed is an error that the test sees, not the test's end.
    signal(SIGPIPE, SIG_IGN);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
