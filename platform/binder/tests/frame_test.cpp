// Labels: memory
// What the decoders accept at its bounds, and what they refuse just beyond. The fuzz target looks
// for the rest.
#include "frame.h"

#include <gtest/gtest.h>

#include <string>

#include "pool.h"

namespace host {
namespace {

template <typename T>
void Append(std::string* bytes, const T& value) {
    bytes->append(reinterpret_cast<const char*>(&value), sizeof(value));
}

Bytes View(const std::string& bytes) {
    return Bytes(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

struct Sizes {
    const char* name;
    uint32_t data_size;
    uint32_t object_count;
    uint32_t objects_size;
    size_t behind;  // bytes that follow the fixed part
    bool good;
};

TEST(Frame, TheSizesOfAMessageMustFillItsBody) {
    constexpr uint32_t kMost = kMaxTransactionBytes;
    const Sizes table[] = {
            {"nothing", 0, 0, 0, 0, true},
            {"padded data", 5, 0, 0, 8, true},
            {"data without its padding", 5, 0, 0, 5, false},
            {"one byte too many", 4, 0, 0, 5, false},
            {"one byte too few", 8, 0, 0, 7, false},
            {"the most data", kMost, 0, 0, kMost, true},
            {"one more", kMost + 1, 0, 0, kMost + 4, false},
            {"data and references together", kMost - 32, 1, 32, kMost, true},
            {"one more of both", kMost - 28, 1, 32, kMost + 4, false},
            {"sizes whose sum wraps", 0xffffffe0, 1, 32, 0, false},
            {"more entries than fit", 0, 2, 60, 60, false},
            {"entries without a table", 0, 1, 0, 0, false},
    };
    for (const Sizes& sizes : table) {
        SCOPED_TRACE(sizes.name);
        std::string call, reply;
        Append(&call,
               CallBody{{}, 1, 0, 1, sizes.data_size, sizes.object_count, sizes.objects_size});
        Append(&reply, ReplyBody{0, 0, sizes.data_size, sizes.object_count, sizes.objects_size, 0});
        EXPECT_EQ(DecodeCall(View(call.append(sizes.behind, 'x'))).has_value(), sizes.good);
        EXPECT_EQ(DecodeReply(View(reply.append(sizes.behind, 'x'))).has_value(), sizes.good);
    }
}

TEST(Frame, ATableOfReferencesIsReadUpToItsFirstBadEntry) {
    std::string table;
    WireObject entry{};
    entry.owner_kind = OwnerKind::kOther;
    entry.owner_size = 3;
    entry.descriptor_size = 2;
    Append(&table, entry);
    table += "ownde\0\0\0";
    table.append(3, '\0');
    ObjectReader good(View(table));
    auto view = good.Next();
    ASSERT_TRUE(view);
    EXPECT_EQ(view->owner, "own");
    EXPECT_EQ(view->descriptor, "de");
    EXPECT_TRUE(good.AtEnd());
    EXPECT_FALSE(good.Next());
    // Not a byte of padding may be missing.
    table.pop_back();
    ObjectReader bad(View(table));
    EXPECT_FALSE(bad.Next());
    EXPECT_FALSE(bad.AtEnd());
}

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
