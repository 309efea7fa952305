// Labels: memory
// Strings on their way between UTF-8 and the UTF-16 of a parcel; C++ values that are null or of a
// length that cannot be.

#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/parcels.h"

namespace {

using std::string_literals::operator""s;

std::u16string WrittenUnits(const std::string& text) {
    ndk::ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ(ndk::AParcel_writeString(parcel.get(), text), STATUS_OK);
    const auto units = reinterpret_cast<const char16_t*>(parcel.get()->data() + 4);
    int32_t length = -1;
    AParcel_setDataPosition(parcel.get(), 0);
    AParcel_readInt32(parcel.get(), &length);
    EXPECT_EQ(units[length], u'\0');
    return std::u16string(units, static_cast<size_t>(length));
}

std::string Read(const std::u16string& units) {
    ndk::ScopedAParcel parcel(AParcel_create());
    AParcel_writeInt32(parcel.get(), static_cast<int32_t>(units.size()));
    parcel.get()->Write(units.c_str(), (units.size() + 1) * sizeof(char16_t));
    AParcel_setDataPosition(parcel.get(), 0);
    std::string text = "old";
    EXPECT_EQ(ndk::AParcel_readString(parcel.get(), &text), STATUS_OK);
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), AParcel_getDataSize(parcel.get()));
    return text;
}

TEST(ParcelStringsTest, ValidTextIsTheSameAfterTheWay) {
    const std::pair<std::string, std::u16string> cases[] = {
            {"", u""},
            {"a", u"a"},
            {"vendor.package.IFoo", u"vendor.package.IFoo"},
            {"a\0b"s, u"a\0b"s},
            {"\x7F\xC2\x80\xDF\xBF", u"\x7F\x80\x7FF"},
            {"long ascii, then \xE2\x82\xAC and more", u"long ascii, then \u20AC and more"},
            {"\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", u"\x800\xD7FF\xE000\xFFFF"},
            {"\xF0\x90\x80\x80|\xF4\x8F\xBF\xBF", u"\xD800\xDC00|\xDBFF\xDFFF"},
    };
    for (const auto& [utf8, utf16] : cases) {
        EXPECT_EQ(WrittenUnits(utf8), utf16) << utf8;
        EXPECT_EQ(Read(utf16), utf8);
    }
}

TEST(ParcelStringsTest, BytesThatAreNotUtf8AreReplacedOneByOne) {
    const std::pair<std::string, std::u16string> cases[] = {
            {"\x80", u"\xFFFD"},
            {"\xFF|\xFE", u"\xFFFD|\xFFFD"},
            {"\xC0\x80", u"\xFFFD\xFFFD"},
            {"\xC1\xBF", u"\xFFFD\xFFFD"},
            {"\xE2\x82", u"\xFFFD\xFFFD"},
            {"\xE2\x82|", u"\xFFFD\xFFFD|"},
            {"\xE0\x80\x80", u"\xFFFD\xFFFD\xFFFD"},
            {"\xED\xA0\x80", u"\xFFFD\xFFFD\xFFFD"},
            {"\xF0\x80\x80\x80", u"\xFFFD\xFFFD\xFFFD\xFFFD"},
            {"\xF4\x90\x80\x80", u"\xFFFD\xFFFD\xFFFD\xFFFD"},
            {"\xF5\x80\x80\x80", u"\xFFFD\xFFFD\xFFFD\xFFFD"},
            {"ascii up to the cut \xF0\x90\x80", u"ascii up to the cut \xFFFD\xFFFD\xFFFD"},
    };
    for (const auto& [utf8, utf16] : cases) {
        EXPECT_EQ(WrittenUnits(utf8), utf16);
    }
}

TEST(ParcelStringsTest, SurrogatesWithoutPartnerAreReplaced) {
    const std::pair<std::u16string, std::string> cases[] = {
            {u"\xD800", "\xEF\xBF\xBD"},
            {u"\xDC00", "\xEF\xBF\xBD"},
            {u"\xD800|", "\xEF\xBF\xBD|"},
            {u"\xD800\xD800\xDC00", "\xEF\xBF\xBD\xF0\x90\x80\x80"},
            {u"\xDC00\xD800", "\xEF\xBF\xBD\xEF\xBF\xBD"},
    };
    for (const auto& [utf16, utf8] : cases) {
        EXPECT_EQ(Read(utf16), utf8);
    }
}

TEST(ParcelStringsTest, ALengthBeyondTheEndOrWithoutItsZeroIsRefused) {
    const std::pair<std::vector<uint8_t>, binder_status_t> cases[] = {
            {{1, 0, 0, 0, 'a', 0, 0, 0}, STATUS_OK},
            {{1, 0, 0, 0, 'a', 0, 'b', 0}, STATUS_BAD_VALUE},
            {{1, 0, 0, 0, 'a', 0, 0}, STATUS_NOT_ENOUGH_DATA},
            {{2, 0, 0, 0, 'a', 0, 0, 0}, STATUS_NOT_ENOUGH_DATA},
            {{0, 0, 0, 0}, STATUS_NOT_ENOUGH_DATA},
            {{0xFF, 0xFF, 0xFF, 0x7F, 0, 0, 0, 0}, STATUS_NOT_ENOUGH_DATA},
            {{0xFE, 0xFF, 0xFF, 0xFF}, STATUS_BAD_VALUE},
            {{0, 0, 0, 0x80}, STATUS_BAD_VALUE},
            {{1, 0}, STATUS_NOT_ENOUGH_DATA},
    };
    for (const auto& [bytes, status] : cases) {
        std::string text;
        EXPECT_EQ(ndk::AParcel_readString(ParcelOfBytes(bytes).get(), &text), status)
                << testing::PrintToString(bytes);
    }
}

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
