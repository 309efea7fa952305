// Labels: memory
// Bytes, positions and limits of a parcel.

#include "src/parcel.h"

#include <android/binder_parcel_utils.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/parcels.h"

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

TEST(ParcelTest, EachValueHasItsPlaceInTheBytes) {
    using Writer = std::function<binder_status_t(AParcel*)>;
    const auto write = [](auto function, auto... values) -> Writer {
        return [=](AParcel* parcel) { return function(parcel, values...); };
    };
    const int8_t bytes[] = {1, 2, 3, 4, 5};
    const char16_t chars[] = {u'a', u'b'};
    const std::pair<Writer, std::vector<uint8_t>> cases[] = {
            {write(AParcel_writeInt32, -2), {0xFE, 255, 255, 255}},
            {write(AParcel_writeInt64, 0x0102030405060708), {8, 7, 6, 5, 4, 3, 2, 1}},
            {write(AParcel_writeFloat, 1.0f), {0, 0, 0x80, 0x3F}},
            {write(AParcel_writeDouble, 1.0), {0, 0, 0, 0, 0, 0, 0xF0, 0x3F}},
            {write(AParcel_writeBool, true), {1, 0, 0, 0}},
            {write(AParcel_writeChar, u'\u20AC'), {0xAC, 0x20, 0, 0}},
            {write(AParcel_writeByte, -1), {255, 255, 255, 255}},
            {write(AParcel_writeStrongBinder, nullptr), {255, 255, 255, 255}},
            {write(AParcel_writeByteArray, bytes, 5), {5, 0, 0, 0, 1, 2, 3, 4, 5, 0, 0, 0}},
            {write(AParcel_writeCharArray, chars, 2), {2, 0, 0, 0, 'a', 0, 0, 0, 'b', 0, 0, 0}},
            {write(AParcel_writeString, "ab", 2), {2, 0, 0, 0, 'a', 0, 'b', 0, 0, 0, 0, 0}},
            {write(AParcel_writeString, nullptr, -1), {255, 255, 255, 255}},
            {write(AParcel_writeInt32Array, nullptr, -1), {255, 255, 255, 255}},
            {write(AParcel_writeInt64Array, nullptr, 0), {0, 0, 0, 0}},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(&one - cases);
        ndk::ScopedAParcel parcel = NewParcel();
        EXPECT_EQ(one.first(parcel.get()), STATUS_OK);
        EXPECT_THAT(Bytes(parcel), ElementsAreArray(one.second));
    }
}

TEST(ParcelTest, PaddingIsZeroAlsoInAReusedBuffer) {
    ndk::ScopedAParcel parcel = NewParcel();
    for (int i = 0; i < 8; ++i) {
        AParcel_writeInt32(parcel.get(), -1);
    }
    AParcel_reset(parcel.get());
    const int8_t one = 7;
    EXPECT_EQ(AParcel_writeByteArray(parcel.get(), &one, 1), STATUS_OK);
    EXPECT_THAT(Bytes(parcel), ElementsAre(1, 0, 0, 0, 7, 0, 0, 0));
}

// What every reader does with bytes that claim too much.
struct Reader {
    const char* name;
    size_t element;
    binder_status_t (*read)(const AParcel*);
};

template <typename T>
binder_status_t ReadVector(const AParcel* parcel) {
    std::vector<T> values;
    return ndk::AParcel_readVector(parcel, &values);
}

TEST(ParcelTest, AnArraysLengthIsComparedWithWhatIsLeftBeforeItIsAllocated) {
    const Reader readers[] = {
            {"int32", 4, ReadVector<int32_t>}, {"int64", 8, ReadVector<int64_t>},
            {"float", 4, ReadVector<float>},   {"double", 8, ReadVector<double>},
            {"char", 4, ReadVector<char16_t>}, {"byte", 1, ReadVector<int8_t>},
    };
    for (const Reader& reader : readers) {
        SCOPED_TRACE(reader.name);
        const auto parcel = [&](int32_t claimed, size_t elements) {
            ndk::ScopedAParcel made = NewParcel();
            AParcel_writeInt32(made.get(), claimed);
            std::vector<uint8_t> bytes = Bytes(made);
            bytes.resize(bytes.size() + elements * reader.element);
            return ParcelOfBytes(bytes);
        };
        EXPECT_EQ(reader.read(parcel(4, 4).get()), STATUS_OK);
        EXPECT_EQ(reader.read(parcel(0, 0).get()), STATUS_OK);
        EXPECT_EQ(reader.read(parcel(5, 4).get()), STATUS_NOT_ENOUGH_DATA);
        EXPECT_EQ(reader.read(parcel(INT32_MAX, 4).get()), STATUS_NOT_ENOUGH_DATA);
        EXPECT_EQ(reader.read(parcel(-1, 4).get()), STATUS_UNEXPECTED_NULL);
        EXPECT_EQ(reader.read(parcel(-2, 4).get()), STATUS_BAD_VALUE);
        EXPECT_EQ(reader.read(parcel(INT32_MIN, 4).get()), STATUS_BAD_VALUE);
    }
}

TEST(ParcelTest, WritersRefuseLengthsThatMakeNoSense) {
    ndk::ScopedAParcel parcel = NewParcel();
    const int32_t value = 1;
    EXPECT_EQ(AParcel_writeInt32Array(parcel.get(), nullptr, 1), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_writeInt32Array(parcel.get(), &value, -2), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_writeString(parcel.get(), nullptr, 0), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_writeString(parcel.get(), "a", -1), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), 0);
}

TEST(ParcelTest, APositionLiesOnABoundaryWithinTheParcel) {
    const ndk::ScopedAParcel parcel = ParcelOfBytes({1, 2, 3, 4, 5, 6, 7, 8, 9});
    for (int32_t good : {0, 4, 8, 9}) {
        EXPECT_EQ(AParcel_setDataPosition(parcel.get(), good), STATUS_OK) << good;
        EXPECT_EQ(AParcel_getDataPosition(parcel.get()), good);
    }
    for (int32_t bad : {-1, 1, 6, 10, 12, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(AParcel_setDataPosition(parcel.get(), bad), STATUS_BAD_VALUE) << bad;
        EXPECT_EQ(AParcel_getDataPosition(parcel.get()), 9);
    }
    EXPECT_EQ(AParcel_writeInt32(parcel.get(), 0), STATUS_BAD_VALUE) << "not a boundary";
}

TEST(ParcelTest, AParcelHoldsSixteenMebibytesAndNotFourBytesMore) {
    ndk::ScopedAParcel parcel = NewParcel();
    const std::vector<int8_t> bytes(AParcel::kMaxSize - 4, 1);
    const auto length = static_cast<int32_t>(bytes.size());
    EXPECT_EQ(AParcel_writeByteArray(parcel.get(), bytes.data(), length), STATUS_OK);
    EXPECT_EQ(parcel.get()->size(), AParcel::kMaxSize);
    EXPECT_EQ(AParcel_writeInt32(parcel.get(), 1), STATUS_NO_MEMORY);
    EXPECT_EQ(parcel.get()->size(), AParcel::kMaxSize);
    AParcel_reset(parcel.get());
    EXPECT_EQ(AParcel_writeInt32(parcel.get(), 1), STATUS_OK);
    const std::string text(AParcel::kMaxSize / 2, 'x');
    EXPECT_EQ(AParcel_writeString(parcel.get(), text.data(), static_cast<int32_t>(text.size())),
              STATUS_NO_MEMORY);
}

TEST(ParcelTest, AppendingCopiesARangeAndChecksIt) {
    const ndk::ScopedAParcel from = ParcelOfBytes({1, 2, 3, 4, 5, 6, 7, 8, 9});
    struct Case {
        int32_t start;
        int32_t size;
        binder_status_t status;
        std::vector<uint8_t> bytes;
    };
    const Case cases[] = {
            {0, 4, STATUS_OK, {1, 2, 3, 4}},
            {4, 5, STATUS_OK, {5, 6, 7, 8, 9, 0, 0, 0}},
            {8, 0, STATUS_OK, {}},
            {0, 10, STATUS_BAD_VALUE, {}},
            {12, 0, STATUS_BAD_VALUE, {}},
            {2, 4, STATUS_BAD_VALUE, {}},
            {-4, 4, STATUS_BAD_VALUE, {}},
            {0, -1, STATUS_BAD_VALUE, {}},
            {8, INT32_MAX, STATUS_BAD_VALUE, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.start << ", " << c.size);
        ndk::ScopedAParcel to = NewParcel();
        EXPECT_EQ(AParcel_appendFrom(from.get(), to.get(), c.start, c.size), c.status);
        EXPECT_THAT(Bytes(to), ElementsAreArray(c.bytes));
        EXPECT_EQ(AParcel_getDataPosition(from.get()), 0);
    }
}

TEST(ParcelTest, AParcelCanBeAppendedToItself) {
    ndk::ScopedAParcel parcel = NewParcel();
    AParcel_writeInt32(parcel.get(), 1);
    for (int32_t size = 4; size < 4096; size *= 2) {
        ASSERT_EQ(AParcel_appendFrom(parcel.get(), parcel.get(), 0, size), STATUS_OK);
    }
    ASSERT_EQ(AParcel_setDataPosition(parcel.get(), 0), STATUS_OK);
    int32_t value = 0;
    while (AParcel_readInt32(parcel.get(), &value) == STATUS_OK) {
        ASSERT_EQ(value, 1);
    }
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), 4096);
}

TEST(ParcelTest, MarshalledBytesMakeTheSameParcelAgain) {
    const ndk::ScopedAParcel parcel = ParcelOfBytes({1, 2, 3, 4, 5, 6, 7, 8});
    std::vector<uint8_t> bytes(4);
    EXPECT_EQ(AParcel_marshal(parcel.get(), bytes.data(), 4, 4), STATUS_OK);
    EXPECT_THAT(bytes, ElementsAre(5, 6, 7, 8));
    EXPECT_EQ(AParcel_marshal(parcel.get(), bytes.data(), 4, 5), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_marshal(parcel.get(), bytes.data(), 9, 0), STATUS_BAD_VALUE);
}

TEST(ParcelTest, ARecycledParcelComesBackEmptyWithItsBuffer) {
    AParcel* first = AParcel_create();
    AParcel_writeInt64(first, 1);
    const uint8_t* buffer = first->data();
    AParcel_delete(first);
    ndk::ScopedAParcel second = NewParcel();
    EXPECT_EQ(second.get()->size(), 0u);
    AParcel_writeInt64(second.get(), 2);
    EXPECT_EQ(second.get()->data(), buffer);
    AParcel_delete(nullptr);
}

TEST(ParcelTest, ParcelsMayEndOnAnotherThreadAndAfterTheirThreadsStore) {
    // Destroyed after the thread's store of parcels, which it is older than.
    struct Late {
        std::vector<AParcel*> parcels;
        ~Late() {
            for (AParcel* parcel : parcels) {
                AParcel_delete(parcel);
            }
            AParcel_delete(AParcel_create());
        }
    };
    std::thread([] {
        thread_local Late late;
        for (int i = 0; i < 8; ++i) {
            late.parcels.push_back(AParcel_create());
        }
        for (int i = 0; i < 8; ++i) {
            AParcel_writeInt32(late.parcels[i], i);
        }
        AParcel_delete(AParcel_create());
        EXPECT_EQ(late.parcels.size(), 8u);
    }).join();
}

}  // namespace
