// Labels: memory
#include <aidl/velmora/sample/Carrier.h>
#include <aidl/velmora/sample/Empty.h>
#include <gtest/gtest.h>

#include "tests/generated/sample_values.h"

namespace {

using aidl::velmora::sample::Carrier;
using aidl::velmora::sample::Choice;
using aidl::velmora::sample::Colour;
using aidl::velmora::sample::Empty;
using aidl::velmora::sample::Everything;
using aidl::velmora::sample::Inner;
using aidl::velmora::sample::InnerNext;
using sample_test::MakeEverything;
using sample_test::MakeInner;

ndk::ScopedAParcel NewParcel() {
    return ndk::ScopedAParcel(AParcel_create());
}

template <typename From, typename To>
binder_status_t Pass(const From& from, To* to) {
    const ndk::ScopedAParcel parcel = NewParcel();
    EXPECT_EQ(from.writeToParcel(parcel.get()), STATUS_OK);
    EXPECT_EQ(AParcel_setDataPosition(parcel.get(), 0), STATUS_OK);
    const binder_status_t status = to->readFromParcel(parcel.get());
    if (status == STATUS_OK) {
        EXPECT_EQ(AParcel_getDataPosition(parcel.get()), AParcel_getDataSize(parcel.get()));
    }
    return status;
}

TEST(Parcelable, StartsWithTheDefaultsOfItsFields) {
    const Everything all;
    EXPECT_TRUE(all.flag);
    EXPECT_EQ(all.small, -128);
    EXPECT_EQ(all.letter, u'x');
    EXPECT_EQ(all.whole, Everything::LIMIT + 1);
    EXPECT_EQ(all.big, int64_t{1} << 32);
    EXPECT_EQ(all.real, 0.1f);
    EXPECT_EQ(all.exact, -1e-3);
    EXPECT_EQ(all.text,
              "what?"
              "?/");
    EXPECT_EQ(all.colour, Colour::BLUE);
    EXPECT_EQ(static_cast<int64_t>(all.wide), INT64_MIN);
    EXPECT_EQ(all.inner.number, 7);
    EXPECT_EQ(all.pair.left.weight, 9);
    EXPECT_EQ(all.choice.get<Choice::Tag::number>(), 3);
    EXPECT_FALSE(all.maybeText.has_value());
    EXPECT_EQ(all.bytes, (std::vector<uint8_t>{1, 255}));
    EXPECT_EQ(all.texts, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(all.colours, (std::vector<Colour>{Colour::RED, Colour::GREEN}));
    EXPECT_FALSE(all.maybeInners.has_value());
}

TEST(Parcelable, ComesOutOfAParcelAsItWentIn) {
    const Everything sent = MakeEverything();
    Everything received;
    ASSERT_NE(received, sent);
    ASSERT_EQ(Pass(sent, &received), STATUS_OK);
    EXPECT_EQ(received, sent);
    ASSERT_EQ(Pass(Everything(), &received), STATUS_OK);
    EXPECT_EQ(received, Everything());
    Empty empty;
    EXPECT_EQ(Pass(Empty(), &empty), STATUS_OK);
}

TEST(Parcelable, ComparesByAllItsFieldsInOrder) {
    Inner one = MakeInner(1);
    Inner two = MakeInner(1);
    EXPECT_TRUE(one == two && one <= two && one >= two && !(one != two) && !(one < two));
    two.name = "zzz";
    EXPECT_TRUE(one < two && two > one && one != two);
    one.number = 2;
    EXPECT_TRUE(two < one);
    EXPECT_TRUE(Empty() == Empty() && !(Empty() < Empty()) && Empty() >= Empty());
}

TEST(Parcelable, OfANewerVersionIsReadAndItsTailSkipped) {
    InnerNext sent;
    sent.number = 12;
    sent.more = {1, 2, 3};
    const ndk::ScopedAParcel parcel = NewParcel();
    ASSERT_EQ(sent.writeToParcel(parcel.get()), STATUS_OK);
    ASSERT_EQ(AParcel_writeInt32(parcel.get(), 77), STATUS_OK);
    AParcel_setDataPosition(parcel.get(), 0);
    Inner received;
    ASSERT_EQ(received.readFromParcel(parcel.get()), STATUS_OK);
    EXPECT_EQ(received.number, 12);
    int32_t behind = 0;
    EXPECT_EQ(AParcel_readInt32(parcel.get(), &behind), STATUS_OK);
    EXPECT_EQ(behind, 77);
}

TEST(Parcelable, OfAnOlderVersionKeepsTheDefaultsOfTheLaterFields) {
    InnerNext received;
    ASSERT_EQ(Pass(MakeInner(5), &received), STATUS_OK);
    EXPECT_EQ(received.number, 5);
    EXPECT_EQ(received.more, (std::vector<int64_t>{1, 2}));
    Inner from_nothing;
    ASSERT_EQ(Pass(Empty(), &from_nothing), STATUS_OK);
    EXPECT_EQ(from_nothing, Inner());
}

// A parcel with these numbers, read as an Inner (a size, a number, a string).
binder_status_t ReadInner(const std::vector<int32_t>& words) {
    const ndk::ScopedAParcel parcel = NewParcel();
    for (int32_t word : words)
        AParcel_writeInt32(parcel.get(), word);
    AParcel_setDataPosition(parcel.get(), 0);
    Inner inner;
    return inner.readFromParcel(parcel.get());
}

TEST(Parcelable, WithASizeThatCannotBeIsRefused) {
    EXPECT_EQ(ReadInner({8, 1}), STATUS_OK);
    for (int32_t size : {-1, 0, 3, 12, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(ReadInner({size, 1}), STATUS_BAD_VALUE) << size;
    }
    // The string reaches over the end of the parcelable.
    EXPECT_EQ(ReadInner({12, 1, 1, 0x61}), STATUS_BAD_VALUE);
    EXPECT_NE(ReadInner({}), STATUS_OK);
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
    EXPECT_EQ(MakeInner(1).toString(), "Inner{number: 1, name: n1}");
    EXPECT_EQ(Empty().toString(), "Empty{}");
    EXPECT_EQ(Carrier().toString(),
              "Carrier{payload: (holder), token: null, listener: null, listeners: null}");
    const std::string all = MakeEverything().toString();
    EXPECT_EQ(all.rfind("Everything{flag: false, small: 127, letter: 20013, whole: -5, ", 0), 0u)
            << all;
    for (const char* part :
         {"colour: DARK", "wide: HIGH", "inner: Inner{number: 1, name: n1}",
          "pair: Pair{left: Part{weight: 3}, right: Part{weight: 4}}",
          "choice: Choice{text: chosen}", "flags: [true, false, true]", "bytes: [0, 255, 7]",
          "colours: [BLUE]", "maybeWholes: []", "maybeTexts: [one, null]",
          "maybeInners: [null, Inner{number: 6, name: n6}]}"}) {
        EXPECT_NE(all.find(part), std::string::npos) << part << " in " << all;
    }
}

TEST(Parcelable, CarriesAHolderAndNullObjects) {
    Carrier sent;
    ASSERT_EQ(sent.payload.setParcelable(MakeInner(9)), STATUS_OK);
    Carrier received;
    ASSERT_EQ(Pass(sent, &received), STATUS_OK);
    std::optional<Inner> payload;
    ASSERT_EQ(received.payload.getParcelable(&payload), STATUS_OK);
    ASSERT_TRUE(payload.has_value());
    EXPECT_EQ(*payload, MakeInner(9));
    EXPECT_EQ(received.listener, nullptr);
    EXPECT_FALSE(received.listeners.has_value());
}

TEST(Union, HoldsOneMemberAtATime) {
    Choice choice;
    EXPECT_EQ(choice.getTag(), Choice::Tag::number);
    choice.set<Choice::Tag::bytes>(std::vector<uint8_t>{1, 2});
    EXPECT_EQ(choice.getTag(), Choice::Tag::bytes);
    choice.get<Choice::Tag::bytes>().push_back(3);
    Choice received;
    ASSERT_EQ(Pass(choice, &received), STATUS_OK);
    EXPECT_EQ(received, choice);
    EXPECT_EQ(received.get<Choice::Tag::bytes>().size(), 3u);
    EXPECT_NE(received, Choice::make<Choice::Tag::text>("x"));
    EXPECT_EQ((Choice::make<Choice::Tag::bytes, uint8_t>({4, 5}).toString()),
              "Choice{bytes: [4, 5]}");
}

TEST(Union, WithAnUnknownTagIsAnError) {
    for (int32_t tag : {-1, 4, INT32_MAX, INT32_MIN}) {
        const ndk::ScopedAParcel parcel = NewParcel();
        AParcel_writeInt32(parcel.get(), tag);
        AParcel_writeInt32(parcel.get(), 0);
        AParcel_setDataPosition(parcel.get(), 0);
        Choice choice;
        EXPECT_EQ(choice.readFromParcel(parcel.get()), STATUS_BAD_VALUE) << tag;
    }
}

TEST(UnionDeathTest, AccessWithAWrongTagEndsTheProcess) {
    const Choice choice;
    EXPECT_DEATH((void)choice.get<Choice::Tag::text>(), "bad access: a wrong tag");
}

TEST(Enum, PrintsItsNamesAndOtherValuesAsNumbers) {
    EXPECT_EQ(toString(Colour::GREEN), "GREEN");
    EXPECT_EQ(toString(Colour::AZURE), "BLUE");
    EXPECT_EQ(toString(static_cast<Colour>(99)), "99");
    EXPECT_EQ(toString(Choice::Tag::inner), "inner");
    EXPECT_EQ(static_cast<int8_t>(Colour::DARK), -7);
}

TEST(Enum, RangeVisitsTheValuesInTheOrderOfDeclaration) {
    std::vector<Colour> colours;
    for (Colour colour : ndk::enum_range<Colour>())
        colours.push_back(colour);
    EXPECT_EQ(colours, (std::vector<Colour>{Colour::RED, Colour::GREEN, Colour::BLUE, Colour::AZURE,
                                            Colour::DARK}));
    int tags = 0;
    for (Choice::Tag tag : ndk::enum_range<Choice::Tag>())
        tags += static_cast<int>(tag);
    EXPECT_EQ(tags, 0 + 1 + 2 + 3);
}

}  // namespace
