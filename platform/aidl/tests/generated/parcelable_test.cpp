// Labels: memory
#include <aidl/velmora/sample/Carrier.h>
#include <gtest/gtest.h>

#include "platform/binder/tests/parcels.h"
#include "tests/generated/sample_values.h"

namespace {

using aidl::velmora::sample::Carrier;
using aidl::velmora::sample::Choice;
using aidl::velmora::sample::Colour;
using aidl::velmora::sample::Everything;
using aidl::velmora::sample::Inner;
using sample_test::MakeEverything;
using sample_test::MakeInner;

TEST(Parcelable, ComparesByAllItsFieldsInOrder) {
    const Inner one = MakeInner(1);
    Inner two = MakeInner(1);
    EXPECT_TRUE(one == two && one <= two && one >= two && !(one != two) && !(one < two));
    two.name = "zzz";
    EXPECT_TRUE(one < two && two > one && one != two);
}

template <typename T>
binder_status_t ReadAs(const std::vector<int32_t>& words) {
    return T().readFromParcel(ParcelOfWords(words).get());
}

// An Inner is a size, a number and a string.
TEST(Parcelable, WithASizeThatCannotBeIsRefused) {
    EXPECT_EQ(ReadAs<Inner>({8, 1}), STATUS_OK);
    for (int32_t size : {-1, 0, 3, 12, INT32_MAX, INT32_MIN})
        EXPECT_EQ(ReadAs<Inner>({size, 1}), STATUS_BAD_VALUE) << size;
    // The string reaches over the end of the parcelable.
    EXPECT_EQ(ReadAs<Inner>({12, 1, 1, 0x61}), STATUS_BAD_VALUE);
    EXPECT_NE(ReadAs<Inner>({}), STATUS_OK);
}

TEST(Parcelable, EveryTruncationIsRefusedOrReadAsAnOlderVersion) {
    const ndk::ScopedAParcel whole = NewParcel();
    ASSERT_EQ(MakeEverything().writeToParcel(whole.get()), STATUS_OK);
    const int32_t size = AParcel_getDataSize(whole.get());
    for (int32_t cut = 4; cut < size; cut += 4) {
        const ndk::ScopedAParcel part = NewParcel();
        ASSERT_EQ(AParcel_appendFrom(whole.get(), part.get(), 0, cut), STATUS_OK);
        AParcel_setDataPosition(part.get(), 0);
        Everything received;
        EXPECT_EQ(received.readFromParcel(part.get()), STATUS_BAD_VALUE) << cut;
        // With a size that admits to the cut.
        AParcel_setDataPosition(part.get(), 0);
        AParcel_writeInt32(part.get(), cut);
        AParcel_setDataPosition(part.get(), 0);
        const binder_status_t status = received.readFromParcel(part.get());
        if (status == STATUS_OK) {
            EXPECT_EQ(AParcel_getDataPosition(part.get()), cut);
        }
    }
}

TEST(Parcelable, PrintsItsFields) {
    EXPECT_EQ(Carrier().toString(),
              "Carrier{payload: (holder), token: null, listener: null, listeners: null}");
    const std::string all = MakeEverything().toString();
    for (const char* part :
         {"letter: 20013", "colour: DARK", "choice: Choice{text: chosen}",
          "flags: [true, false, true]", "maybeInners: [null, Inner{number: 6, name: n6}]"})
        EXPECT_NE(all.find(part), std::string::npos) << part << " in " << all;
}

TEST(Union, HoldsOneMemberAtATime) {
    Choice choice;
    EXPECT_EQ(choice.getTag(), Choice::Tag::number);
    choice.set<Choice::Tag::bytes>(std::vector<uint8_t>{1, 2});
    choice.get<Choice::Tag::bytes>().push_back(3);
    EXPECT_EQ(choice, (Choice::make<Choice::Tag::bytes, uint8_t>({1, 2, 3})));
    EXPECT_EQ(choice.toString(), "Choice{bytes: [1, 2, 3]}");
}

TEST(Union, WithAnUnknownTagIsAnError) {
    for (int32_t tag : {-1, 4, INT32_MAX, INT32_MIN})
        EXPECT_EQ(ReadAs<Choice>({tag, 0}), STATUS_BAD_VALUE) << tag;
}

TEST(UnionDeathTest, AccessWithAWrongTagEndsTheProcess) {
    const Choice choice;
    EXPECT_DEATH((void)choice.get<Choice::Tag::text>(), "bad access: a wrong tag");
}

TEST(Enum, PrintsItsNamesAndOtherValuesAsNumbers) {
    EXPECT_EQ(toString(Colour::GREEN), "GREEN");
    EXPECT_EQ(toString(static_cast<Colour>(99)), "99");
    std::string names;
    for (Colour colour : ndk::enum_range<Colour>())
        names += toString(colour) + " ";
    EXPECT_EQ(names, "RED GREEN BLUE BLUE DARK ");
}

}  // namespace
