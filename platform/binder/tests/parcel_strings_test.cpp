// Labels: memory
// Strings on their way between UTF-8 and the UTF-16 of a parcel.

#include <android/binder_parcel_utils.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "src/parcel.h"

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
        ndk::ScopedAParcel parcel(AParcel_create());
        AParcel_unmarshal(parcel.get(), bytes.data(), bytes.size());
        std::string text;
        EXPECT_EQ(ndk::AParcel_readString(parcel.get(), &text), status)
                << testing::PrintToString(bytes);
    }
}

}  // namespace
