// Labels: memory
// Binders inside parcels: who holds them, and that bytes alone never become one.

#include <android/binder_parcel_utils.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "tests/local_object.h"
#include "tests/parcels.h"

namespace {

class ParcelBindersTest : public testing::Test {
  protected:
    ~ParcelBindersTest() override { EXPECT_EQ(alive_, 0) << "a reference is left over"; }

    ndk::SpAIBinder Object() { return MakeLocalObject(&alive_); }

    static AIBinder* ReadAt(const ndk::ScopedAParcel& parcel, int32_t position) {
        EXPECT_EQ(AParcel_setDataPosition(parcel.get(), position), STATUS_OK);
        ndk::SpAIBinder binder;
        EXPECT_EQ(AParcel_readStrongBinder(parcel.get(), binder.getR()), STATUS_OK);
        return binder.get();
    }

    std::atomic<int> alive_{0};
};

TEST_F(ParcelBindersTest, AParcelKeepsItsBindersAndReadersGetTheirOwnReference) {
    ndk::ScopedAParcel parcel = NewParcel();
    AIBinder* object;
    {
        ndk::SpAIBinder owner = Object();
        object = owner.get();
        EXPECT_EQ(AParcel_writeStrongBinder(parcel.get(), object), STATUS_OK);
    }
    EXPECT_EQ(alive_, 1);
    AParcel_setDataPosition(parcel.get(), 0);
    ndk::SpAIBinder read;
    EXPECT_EQ(AParcel_readStrongBinder(parcel.get(), read.getR()), STATUS_OK);
    EXPECT_EQ(read.get(), object);
    AParcel_reset(parcel.get());
    EXPECT_EQ(alive_, 1);
    read = nullptr;
    EXPECT_EQ(alive_, 0);
}

TEST_F(ParcelBindersTest, OnlyWhatWasWrittenAsABinderIsReadAsOne) {
    ndk::ScopedAParcel parcel = NewParcel();
    AParcel_writeStrongBinder(parcel.get(), Object().get());
    const int32_t forged[] = {0, 1, 7, -2, INT32_MAX, INT32_MIN};
    for (int32_t number : forged)
        AParcel_writeInt32(parcel.get(), number);
    AParcel_setDataPosition(parcel.get(), 4);
    for (int32_t number : forged) {
        AIBinder* read = nullptr;
        EXPECT_EQ(AParcel_readStrongBinder(parcel.get(), &read), STATUS_BAD_TYPE) << number;
        EXPECT_EQ(read, nullptr);
    }
    AIBinder* read = nullptr;
    EXPECT_EQ(AParcel_readStrongBinder(parcel.get(), &read), STATUS_NOT_ENOUGH_DATA);
}

TEST_F(ParcelBindersTest, AppendingTakesTheBindersOfTheRangeAlong) {
    ndk::ScopedAParcel from = NewParcel();
    ndk::SpAIBinder objects[] = {Object(), Object(), Object()};
    for (const ndk::SpAIBinder& object : objects) {
        AParcel_writeStrongBinder(from.get(), object.get());
    }
    ndk::ScopedAParcel to = NewParcel();
    ndk::SpAIBinder own = Object();
    AParcel_writeStrongBinder(to.get(), own.get());
    EXPECT_EQ(AParcel_appendFrom(from.get(), to.get(), 4, 8), STATUS_OK);
    from.set(nullptr);
    EXPECT_EQ(ReadAt(to, 0), own.get());
    EXPECT_EQ(ReadAt(to, 4), objects[1].get());
    EXPECT_EQ(ReadAt(to, 8), objects[2].get());
    EXPECT_EQ(to.get()->objects().size(), 3u);
}

TEST_F(ParcelBindersTest, ABinderIsNeitherWrittenOverNorPutInFrontOfAnother) {
    ndk::ScopedAParcel parcel = NewParcel();
    AParcel_writeInt64(parcel.get(), 0);
    ndk::SpAIBinder object = Object();
    AParcel_writeStrongBinder(parcel.get(), object.get());
    const auto at = [&](int32_t position) {
        EXPECT_EQ(AParcel_setDataPosition(parcel.get(), position), STATUS_OK);
        return parcel.get();
    };
    EXPECT_EQ(AParcel_writeInt32(at(8), 5), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_writeInt64(at(4), 5), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_writeStrongBinder(at(0), object.get()), STATUS_BAD_VALUE);
    EXPECT_EQ(AParcel_writeInt64(at(0), 5), STATUS_OK);
    EXPECT_EQ(ReadAt(parcel, 8), object.get());
}

TEST_F(ParcelBindersTest, BytesCannotStandForBinders) {
    ndk::ScopedAParcel parcel = NewParcel();
    AParcel_writeStrongBinder(parcel.get(), Object().get());
    uint8_t bytes[4];
    EXPECT_EQ(AParcel_marshal(parcel.get(), bytes, 0, 4), STATUS_INVALID_OPERATION);
}

TEST_F(ParcelBindersTest, AssigningChecksThePlaceOfEachObjectAndTakesTheReferencesAnyway) {
    struct Case {
        const char* name;
        std::vector<uint8_t> bytes;
        std::vector<uint32_t> offsets;
        bool good;
    };
    const Case cases[] = {
            {"none", {9, 9, 9}, {}, true},
            {"two", {0, 0, 0, 0, 1, 0, 0, 0}, {0, 4}, true},
            {"wrong index", {1, 0, 0, 0}, {0}, false},
            {"the index of another", {0, 0, 0, 0, 0, 0, 0, 0}, {0, 4}, false},
            {"negative index", {255, 255, 255, 255}, {0}, false},
            {"twice the same place", {0, 0, 0, 0, 1, 0, 0, 0}, {0, 0}, false},
            {"descending", {1, 0, 0, 0, 0, 0, 0, 0}, {4, 0}, false},
            {"not aligned", {0, 0, 0, 0, 0, 0}, {2}, false},
            {"cut", {0, 0, 0, 0, 0, 0, 0}, {4}, false},
            {"beyond the end", {0, 0, 0, 0}, {8}, false},
            {"far beyond the end", {0, 0, 0, 0}, {0xFFFFFFFC}, false},
            {"no bytes", {}, {0}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        AParcel parcel;
        std::vector<AParcel::Object> objects;
        for (uint32_t offset : c.offsets) {
            ndk::SpAIBinder object = Object();
            AIBinder_incStrong(object.get());
            objects.push_back({offset, object.get()});
        }
        EXPECT_EQ(parcel.Assign(c.bytes.data(), c.bytes.size(), std::move(objects)), c.good);
        EXPECT_EQ(alive_, c.good ? static_cast<int>(c.offsets.size()) : 0);
        EXPECT_EQ(parcel.size(), c.good ? c.bytes.size() : 0);
    }
}

TEST_F(ParcelBindersTest, AnObjectThatEndsWithAParcelMayUseParcels) {
    static AIBinder_Class* const clazz = AIBinder_Class_define(
            "test.UsesParcels", [](void* args) { return args; },
            [](void* userData) {
                ndk::ScopedAParcel parcel = NewParcel();
                EXPECT_EQ(AParcel_writeInt32(parcel.get(), 1), STATUS_OK);
                EXPECT_EQ(AParcel_getDataSize(parcel.get()), 4);
                --*static_cast<std::atomic<int>*>(userData);
            },
            [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
                return STATUS_UNKNOWN_TRANSACTION;
            });
    ndk::ScopedAParcel parcel = NewParcel();
    for (int i = 0; i < 3; ++i) {
        ++alive_;
        ndk::SpAIBinder object(AIBinder_new(clazz, &alive_));
        AParcel_writeStrongBinder(parcel.get(), object.get());
    }
    parcel.set(nullptr);
    EXPECT_EQ(alive_, 0);
    EXPECT_EQ(AParcel_getDataSize(NewParcel().get()), 0);
}

}  // namespace
