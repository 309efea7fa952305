// Labels: memory
#include "frame.h"

#include <gtest/gtest.h>

#include <string>

namespace host {
namespace {

TEST(Frame, AnEndpointNameIsAProcessNumberAndSixteenDigits) {
    EXPECT_EQ(PidOfEndpointName("42-0123456789abcdef"), 42);
    for (const char* bad :
         {"", "-", "42", "42-", "42-0123456789abcde", "42-0123456789abcdef0", "42-0123456789ABCDEF",
          "-0123456789abcdef", "0-0123456789abcdef", "+1-0123456789abcdef", " 1-0123456789abcdef",
          "1x-0123456789abcdef", "4294967338-0123456789abcdef", "../42-0123456789abcdef"}) {
        EXPECT_FALSE(PidOfEndpointName(bad)) << bad;
    }
    char field[kEndpointNameSize];
    memset(field, 'x', sizeof(field));
    EXPECT_EQ(DecodeName(field), "");
    field[3] = '\0';
    EXPECT_EQ(DecodeName(field), "xxx");
}

}  // namespace
}  // namespace host
