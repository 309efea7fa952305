// Labels: memory
// C++ values that are null or of a length that cannot be.

#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/parcels.h"

namespace {

enum class Small : int8_t { kA = -1, kB = 2 };

// A parcelable of one number and children of its own kind.
struct Tree {
    int32_t number = 0;
    std::vector<Tree> children;

    binder_status_t writeToParcel(AParcel* parcel) const {
        const binder_status_t status = ndk::AParcel_writeData(parcel, number);
        return status == STATUS_OK ? ndk::AParcel_writeData(parcel, children) : status;
    }
    binder_status_t readFromParcel(const AParcel* parcel) {
        const binder_status_t status = ndk::AParcel_readData(parcel, &number);
        return status == STATUS_OK ? ndk::AParcel_readData(parcel, &children) : status;
    }
};

// What generated code has a use for is sent between processes by other tests.
TEST(ParcelUtilsTest, AnArrayMayBeNullAndHoldNull) {
    const ndk::ScopedAParcel parcel = NewParcel();
    std::optional<std::vector<ndk::SpAIBinder>> binders(2), none;
    std::optional<std::vector<bool>> flags{{true, false}}, read;
    ASSERT_EQ(ndk::AParcel_writeNullableData(parcel.get(), binders), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_writeNullableData(parcel.get(), none), STATUS_OK);
    ASSERT_EQ(ndk::AParcel_writeNullableData(parcel.get(), flags), STATUS_OK);
    AParcel_setDataPosition(parcel.get(), 0);
    ASSERT_EQ(ndk::AParcel_readNullableData(parcel.get(), &none), STATUS_OK);
    EXPECT_EQ(none, binders);
    ASSERT_EQ(ndk::AParcel_readNullableData(parcel.get(), &binders), STATUS_OK);
    EXPECT_EQ(binders, std::nullopt);
    ASSERT_EQ(ndk::AParcel_readNullableData(parcel.get(), &read), STATUS_OK);
    EXPECT_EQ(read, flags);
}

template <typename T>
binder_status_t ReadAs(const std::vector<int32_t>& words) {
    T read{};
    return ndk::AParcel_readData(ParcelOfWords(words).get(), &read);
}

TEST(ParcelUtilsTest, NullWhereAValueIsRequiredIsRefused) {
    EXPECT_EQ(ReadAs<std::string>({-1}), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(ReadAs<Tree>({0}), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(ReadAs<ndk::SpAIBinder>({-1}), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(ReadAs<std::vector<int32_t>>({-1}), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(ReadAs<std::vector<bool>>({-1}), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(ReadAs<std::vector<Tree>>({-1}), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(ReadAs<std::vector<Tree>>({1, 0}), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(ReadAs<std::vector<std::string>>({1, -1}), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(ReadAs<std::vector<ndk::SpAIBinder>>({1, -1}), STATUS_UNEXPECTED_NULL);
    ndk::ScopedAParcel parcel = NewParcel();
    EXPECT_EQ(ndk::AParcel_writeData(parcel.get(), std::vector<ndk::SpAIBinder>(1)),
              STATUS_UNEXPECTED_NULL);
}

TEST(ParcelUtilsTest, LengthsThatCannotBeAreRefused) {
    EXPECT_EQ(ReadAs<std::vector<Tree>>({2, 1, 0}), STATUS_NOT_ENOUGH_DATA);
    EXPECT_EQ(ReadAs<std::vector<Tree>>({INT32_MAX}), STATUS_NOT_ENOUGH_DATA);
    EXPECT_EQ(ReadAs<std::vector<std::string>>({-2}), STATUS_BAD_VALUE);
    EXPECT_EQ(ReadAs<std::vector<std::string>>({1 << 30}), STATUS_NOT_ENOUGH_DATA);
    EXPECT_EQ(ReadAs<std::vector<bool>>({2, 1}), STATUS_NOT_ENOUGH_DATA);
    EXPECT_EQ(ReadAs<std::vector<Small>>({5, 0}), STATUS_NOT_ENOUGH_DATA);
}

TEST(ParcelUtilsTest, ParcelablesNestSixtyFourDeepAndNoDeeper) {
    // Each level is: present, its number, one child.
    const auto nested = [](int levels) {
        std::vector<int32_t> words;
        for (int i = 0; i < levels; ++i)
            words.insert(words.end(), {1, i, i + 1 < levels ? 1 : 0});
        return words;
    };
    EXPECT_EQ(ReadAs<Tree>(nested(64)), STATUS_OK);
    EXPECT_EQ(ReadAs<Tree>(nested(65)), STATUS_BAD_VALUE);
    EXPECT_EQ(ReadAs<Tree>(nested(100'000)), STATUS_BAD_VALUE);
}

TEST(ParcelUtilsTest, TheSizeOfAnOutVectorIsBounded) {
    const auto resized = [](int32_t size, auto* vector) {
        return ndk::AParcel_resizeVector(ParcelOfWords({size}).get(), vector);
    };
    std::vector<int32_t> vector;
    EXPECT_EQ(resized(262'144, &vector), STATUS_OK);
    EXPECT_EQ(vector.size(), 262'144u);
    EXPECT_EQ(resized(262'145, &vector), STATUS_NO_MEMORY);
    EXPECT_EQ(resized(-1, &vector), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(resized(-2, &vector), STATUS_BAD_VALUE);
    std::optional<std::vector<int32_t>> nullable(1);
    EXPECT_EQ(resized(-1, &nullable), STATUS_OK);
    EXPECT_EQ(nullable, std::nullopt);
}

}  // namespace
