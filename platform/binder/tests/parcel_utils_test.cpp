// Labels: memory
// C++ values of every type that an interface can name, there and back.

#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace {

enum class Small : int8_t { kA = -1, kB = 2 };
enum class Large : int64_t { kA = INT64_MIN, kB = 5 };

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
    bool operator==(const Tree& other) const {
        return number == other.number && children == other.children;
    }
};

ndk::ScopedAParcel NewParcel() {
    return ndk::ScopedAParcel(AParcel_create());
}

template <typename T>
void ExpectSameAfterTheWay(const T& value) {
    ndk::ScopedAParcel parcel = NewParcel();
    T read{};
    ASSERT_EQ(ndk::AParcel_writeData(parcel.get(), value), STATUS_OK);
    AParcel_setDataPosition(parcel.get(), 0);
    ASSERT_EQ(ndk::AParcel_readData(parcel.get(), &read), STATUS_OK);
    EXPECT_TRUE(read == value);
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), AParcel_getDataSize(parcel.get()));
}

template <typename T>
void ExpectNullableSameAfterTheWay(const T& value) {
    for (const std::optional<T>& sent : {std::optional<T>(value), std::optional<T>()}) {
        ndk::ScopedAParcel parcel = NewParcel();
        std::optional<T> read;
        if (!sent.has_value()) read.emplace();
        ASSERT_EQ(ndk::AParcel_writeNullableData(parcel.get(), sent), STATUS_OK);
        AParcel_setDataPosition(parcel.get(), 0);
        ASSERT_EQ(ndk::AParcel_readNullableData(parcel.get(), &read), STATUS_OK);
        EXPECT_TRUE(read == sent);
        EXPECT_EQ(AParcel_getDataPosition(parcel.get()), AParcel_getDataSize(parcel.get()));
    }
}

TEST(ParcelUtilsTest, ValuesAreTheSameAfterTheWay) {
    ExpectSameAfterTheWay(true);
    ExpectSameAfterTheWay<int8_t>(-128);
    ExpectSameAfterTheWay<uint8_t>(255);
    ExpectSameAfterTheWay(u'\xFFFF');
    ExpectSameAfterTheWay(std::numeric_limits<int32_t>::min());
    ExpectSameAfterTheWay(std::numeric_limits<int64_t>::min());
    ExpectSameAfterTheWay(-0.5f);
    ExpectSameAfterTheWay(1e300);
    ExpectSameAfterTheWay(Small::kA);
    ExpectSameAfterTheWay(Large::kA);
    ExpectSameAfterTheWay<std::string>("text");
    ExpectSameAfterTheWay(Tree{1, {{2, {}}, {3, {{4, {}}}}}});
}

TEST(ParcelUtilsTest, VectorsAreTheSameAfterTheWay) {
    ExpectSameAfterTheWay(std::vector<bool>{true, false, true});
    ExpectSameAfterTheWay(std::vector<uint8_t>{1, 2, 255});
    ExpectSameAfterTheWay(std::vector<char16_t>{u'a', u'\xFFFF'});
    ExpectSameAfterTheWay(std::vector<int32_t>{-1, 2});
    ExpectSameAfterTheWay(std::vector<int64_t>{-1, 2});
    ExpectSameAfterTheWay(std::vector<float>{1.5f});
    ExpectSameAfterTheWay(std::vector<double>{1.5, -2});
    ExpectSameAfterTheWay(std::vector<Small>{Small::kA, Small::kB});
    ExpectSameAfterTheWay(std::vector<Large>{Large::kB});
    ExpectSameAfterTheWay(std::vector<std::string>{"", "a"});
    ExpectSameAfterTheWay(std::vector<Tree>(100, Tree{7, {}}));
    ExpectSameAfterTheWay(std::vector<int32_t>());
    ExpectSameAfterTheWay(std::vector<std::string>());
}

TEST(ParcelUtilsTest, WhatMayBeNullKeepsNullAndValueApart) {
    ExpectNullableSameAfterTheWay<std::string>("");
    ExpectNullableSameAfterTheWay(Tree{1, {}});
    ExpectNullableSameAfterTheWay(std::vector<int32_t>());
    ExpectNullableSameAfterTheWay(std::vector<bool>{true});
    ExpectNullableSameAfterTheWay(std::vector<std::optional<std::string>>{"a", std::nullopt, ""});
    ExpectNullableSameAfterTheWay(std::vector<std::optional<Tree>>{Tree{1, {}}, std::nullopt});
    ExpectNullableSameAfterTheWay(std::vector<ndk::SpAIBinder>(2));
}

template <typename T>
binder_status_t ReadAs(const std::vector<int32_t>& words) {
    ndk::ScopedAParcel parcel = NewParcel();
    for (int32_t word : words)
        AParcel_writeInt32(parcel.get(), word);
    AParcel_setDataPosition(parcel.get(), 0);
    T read{};
    return ndk::AParcel_readData(parcel.get(), &read);
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
        ndk::ScopedAParcel parcel = NewParcel();
        AParcel_writeInt32(parcel.get(), size);
        AParcel_setDataPosition(parcel.get(), 0);
        return ndk::AParcel_resizeVector(parcel.get(), vector);
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
