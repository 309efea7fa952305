// Labels: memory processes
#include <gtest/gtest.h>

#include "node.h"
#include "tests/generated/sample_values.h"

namespace calls_test {
namespace {

using aidl::velmora::sample::Carrier;
using aidl::velmora::sample::Choice;
using aidl::velmora::sample::Everything;
using aidl::velmora::sample::Inner;

const auto* const kHost = ::testing::AddGlobalTestEnvironment(new SharedHost);

struct NamedEverything {
    const char* name;
    Everything value;
};

Everything WithText(const std::string& text) {
    Everything all;
    all.text = text;
    all.maybeText = text;
    all.texts = {text, "", text};
    all.choice = Choice::make<Choice::Tag::text>(text);
    all.inner.name = text;
    return all;
}

Everything WithEmptyNullables() {
    Everything all;
    all.maybeText.emplace();
    all.maybeInner.emplace();
    all.maybeChoice.emplace();
    all.maybeWholes.emplace();
    all.maybeTexts.emplace();
    all.maybeInners.emplace();
    return all;
}

Everything WithEmptyArrays() {
    Everything all;
    all.bytes.clear();
    all.wholes.clear();
    all.texts.clear();
    all.colours.clear();
    return all;
}

// Too large for a message in one piece.
Everything WithMuch() {
    Everything all;
    for (size_t i = 0; i < 300'000; ++i)
        all.bytes.push_back(static_cast<uint8_t>(i * 7));
    all.bigs.assign(20'000, INT64_MIN);
    all.texts.assign(2'000, "\u4e2d\u6587");
    all.inners.assign(500, sample_test::MakeInner(9));
    return all;
}

TEST(Values, OfEveryTypeComeBackAsTheyWent) {
    const RemoteNode node;
    const NamedEverything values[] = {
            {"what a new one holds, with all nullables null", Everything()},
            {"no field as in a new one", sample_test::MakeEverything()},
            {"nullables that are empty", WithEmptyNullables()},
            {"arrays that are empty", WithEmptyArrays()},
            {"text of one to four bytes a character", WithText("a\u00e9\u4e2d\U0001f600\uffff")},
            {"text with a zero in it", WithText(std::string("a\0b\0", 4))},
            {"a bytes choice",
             [] {
                 Everything all;
                 all.choice = Choice::make<Choice::Tag::bytes>(std::vector<uint8_t>{1, 2, 255});
                 return all;
             }()},
            {"much", WithMuch()},
    };
    for (const auto& [name, value] : values) {
        Everything back = sample_test::MakeEverything();
        ASSERT_TRUE(node->repeat(value, &back).isOk()) << name;
        EXPECT_EQ(back, value) << name;
    }
}

TEST(Values, AreFilledByTheOtherProcess) {
    const RemoteNode node;
    std::vector<int32_t> numbers(3, -1);
    Inner inner = sample_test::MakeInner(21);
    Choice choice = Choice::make<Choice::Tag::number>(1);
    ASSERT_TRUE(node->fill(&numbers, &inner, &choice).isOk());
    EXPECT_EQ(numbers, (std::vector<int32_t>{0, 1, 2}));
    EXPECT_EQ(inner.number, 42);
    EXPECT_EQ(inner.name, "n21");
    EXPECT_EQ(choice, Choice::make<Choice::Tag::text>("3"));
}

// A parcelable that the other process has never heard of.
struct Unknown {
    static constexpr const char* descriptor = "test.calls.Unknown";
    static constexpr ndk::parcel_stability_t _aidl_parcelable_stability = ndk::STABILITY_LOCAL;

    std::vector<uint8_t> bytes;
    SpAIBinder binder;

    binder_status_t writeToParcel(AParcel* parcel) const {
        const binder_status_t status = ndk::AParcel_writeVector(parcel, bytes);
        return status == STATUS_OK ? AParcel_writeStrongBinder(parcel, binder.get()) : status;
    }
    binder_status_t readFromParcel(const AParcel* parcel) {
        const binder_status_t status = ndk::AParcel_readVector(parcel, &bytes);
        return status == STATUS_OK ? AParcel_readStrongBinder(parcel, binder.getR()) : status;
    }
};

TEST(Payload, OfUnknownTypeComesBackWithItsBinders) {
    const RemoteNode node;
    const auto own = ndk::SharedRefBase::make<Node>();
    Carrier carrier;
    ASSERT_EQ(carrier.payload.setParcelable(Unknown{{0, 255, 1}, own->asBinder()}), STATUS_OK);
    ASSERT_TRUE(node->carry(carrier, &carrier).isOk());
    std::optional<Unknown> unknown;
    ASSERT_EQ(carrier.payload.getParcelable(&unknown), STATUS_OK);
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->bytes, (std::vector<uint8_t>{0, 255, 1}));
    EXPECT_EQ(unknown->binder, own->asBinder());
}

TEST(Payload, MayBeAbsent) {
    const RemoteNode node;
    Carrier carrier;
    carrier.token = node.LookUp();
    Carrier back;
    ASSERT_TRUE(node->carry(carrier, &back).isOk());
    std::optional<Unknown> unknown;
    EXPECT_EQ(back.payload.getParcelable(&unknown), STATUS_OK);
    EXPECT_FALSE(unknown);
    EXPECT_EQ(back.token, carrier.token);
    EXPECT_EQ(back.listener, nullptr);
    EXPECT_FALSE(back.listeners);
}

}  // namespace
}  // namespace calls_test
