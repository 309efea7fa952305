// Labels: memory threads
// A holder keeps what it is given, byte for byte, and gives it out only as what it is.

#include <android/binder_parcel_utils.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tests/local_object.h"
#include "tests/parcels.h"

namespace {

using ndk::AParcelableHolder;
using ndk::STABILITY_LOCAL;
using ndk::STABILITY_VINTF;

struct Note {
    static constexpr const char* descriptor = "test.Note";
    static constexpr ndk::parcel_stability_t _aidl_parcelable_stability = STABILITY_VINTF;

    std::string text;

    binder_status_t writeToParcel(AParcel* parcel) const {
        return text == "fails" ? STATUS_INVALID_OPERATION : ndk::AParcel_writeData(parcel, text);
    }
    binder_status_t readFromParcel(const AParcel* parcel) {
        return ndk::AParcel_readData(parcel, &text);
    }
};

struct LocalNote : Note {
    static constexpr const char* descriptor = "test.LocalNote";
    static constexpr ndk::parcel_stability_t _aidl_parcelable_stability = STABILITY_LOCAL;
};

struct WithBinder {
    static constexpr const char* descriptor = "test.WithBinder";
    static constexpr ndk::parcel_stability_t _aidl_parcelable_stability = STABILITY_VINTF;

    ndk::SpAIBinder binder;

    binder_status_t writeToParcel(AParcel* parcel) const {
        return ndk::AParcel_writeData(parcel, binder);
    }
    binder_status_t readFromParcel(const AParcel* parcel) {
        return ndk::AParcel_readData(parcel, &binder);
    }
};

AParcelableHolder HolderOf(const std::string& text) {
    AParcelableHolder holder(STABILITY_VINTF);
    EXPECT_EQ(holder.setParcelable(Note{text}), STATUS_OK);
    return holder;
}

// The text of the note that is held; "none" if there is none.
std::string TextIn(const AParcelableHolder& holder) {
    std::optional<Note> note;
    EXPECT_EQ(holder.getParcelable(&note), STATUS_OK);
    return note ? note->text : "none";
}

ndk::ScopedAParcel Written(const AParcelableHolder& holder) {
    ndk::ScopedAParcel parcel = NewParcel();
    EXPECT_EQ(holder.writeToParcel(parcel.get()), STATUS_OK);
    AParcel_setDataPosition(parcel.get(), 0);
    return parcel;
}

TEST(ParcelableHolderTest, AnotherTypeOrNothingIsNoValueAndNoError) {
    std::optional<WithBinder> other = WithBinder{};
    EXPECT_EQ(HolderOf("hello").getParcelable(&other), STATUS_OK);
    EXPECT_EQ(other, std::nullopt);
    EXPECT_EQ(TextIn(AParcelableHolder(STABILITY_VINTF)), "none");
}

TEST(ParcelableHolderTest, StoresNothingThatIsLessStableThanItself) {
    AParcelableHolder vintf = HolderOf("kept");
    EXPECT_EQ(vintf.setParcelable(LocalNote{}), STATUS_BAD_VALUE);
    EXPECT_EQ(TextIn(vintf), "kept");
    AParcelableHolder local(STABILITY_LOCAL);
    EXPECT_EQ(local.setParcelable(LocalNote{}), STATUS_OK);
    EXPECT_EQ(local.setParcelable(Note{"stable"}), STATUS_OK);
    EXPECT_EQ(TextIn(local), "stable");
}

TEST(ParcelableHolderTest, StoringReplacesAndAFailureOrNullLeavesItEmpty) {
    AParcelableHolder holder = HolderOf("first");
    EXPECT_EQ(holder.setParcelable(std::make_shared<Note>(Note{"second"})), STATUS_OK);
    EXPECT_EQ(TextIn(holder), "second");
    std::shared_ptr<Note> shared;
    EXPECT_EQ(holder.getParcelable(&shared), STATUS_OK);
    ASSERT_NE(shared, nullptr);
    EXPECT_EQ(shared->text, "second") << "read from the begin each time";
    EXPECT_EQ(holder.setParcelable(Note{"fails"}), STATUS_INVALID_OPERATION);
    EXPECT_EQ(TextIn(holder), "none");
    holder = HolderOf("third");
    EXPECT_EQ(holder.setParcelable(std::shared_ptr<Note>()), STATUS_OK);
    EXPECT_EQ(TextIn(holder), "none");
}

TEST(ParcelableHolderTest, IsWrittenAsStabilitySizeDescriptorAndPayload) {
    ndk::ScopedAParcel expected(AParcel_create());
    ndk::ScopedAParcel payload(AParcel_create());
    ndk::AParcel_writeString(payload.get(), std::string("test.Note"));
    ndk::AParcel_writeString(payload.get(), std::string("hi"));
    AParcel_writeInt32(expected.get(), STABILITY_VINTF);
    AParcel_writeInt32(expected.get(), AParcel_getDataSize(payload.get()));
    AParcel_appendFrom(payload.get(), expected.get(), 0, AParcel_getDataSize(payload.get()));
    EXPECT_EQ(Bytes(Written(HolderOf("hi"))), Bytes(expected));
    EXPECT_EQ(Bytes(Written(AParcelableHolder(STABILITY_VINTF))),
              Bytes(ParcelOfWords({STABILITY_VINTF, 0})));
}

TEST(ParcelableHolderTest, AnUnknownPayloadPassesThroughByteForByte) {
    const ndk::ScopedAParcel sent = ParcelOfWords({STABILITY_VINTF, 12, 0x11223344, -1, 0, 77});
    AParcelableHolder holder(STABILITY_VINTF);
    ASSERT_EQ(holder.readFromParcel(sent.get()), STATUS_OK);
    int32_t behind = 0;
    EXPECT_EQ(AParcel_readInt32(sent.get(), &behind), STATUS_OK);
    EXPECT_EQ(behind, 77);
    const AParcelableHolder copy = holder;
    EXPECT_EQ(Bytes(Written(copy)), Bytes(ParcelOfWords({STABILITY_VINTF, 12, 0x11223344, -1, 0})));
    std::optional<Note> note;
    EXPECT_NE(copy.getParcelable(&note), STATUS_OK);
    EXPECT_FALSE(note.has_value());
}

TEST(ParcelableHolderTest, BytesThatCannotBeAHolderAreRefusedAndLeaveItEmpty) {
    const std::pair<std::vector<int32_t>, binder_status_t> cases[] = {
            {{}, STATUS_NOT_ENOUGH_DATA},
            {{STABILITY_VINTF}, STATUS_NOT_ENOUGH_DATA},
            {{STABILITY_LOCAL, 0}, STATUS_BAD_VALUE},
            {{7, 0}, STATUS_BAD_VALUE},
            {{STABILITY_VINTF, -1}, STATUS_BAD_VALUE},
            {{STABILITY_VINTF, 3, 0}, STATUS_BAD_VALUE},
            {{STABILITY_VINTF, 8, 0}, STATUS_NOT_ENOUGH_DATA},
            {{STABILITY_VINTF, 0x7FFFFFFC, 0}, STATUS_NOT_ENOUGH_DATA},
    };
    for (const auto& [words, status] : cases) {
        AParcelableHolder holder = HolderOf("old");
        EXPECT_EQ(holder.readFromParcel(ParcelOfWords(words).get()), status)
                << testing::PrintToString(words);
        EXPECT_EQ(TextIn(holder), "none");
    }
}

TEST(ParcelableHolderTest, CopiesAreIndependentAndMovesLeaveNothing) {
    AParcelableHolder original = HolderOf("one");
    AParcelableHolder copy = original;
    original = HolderOf("two");
    EXPECT_EQ(TextIn(copy), "one");
    const AParcelableHolder& same = copy;
    copy = same;
    EXPECT_EQ(TextIn(copy), "one");
    const AParcelableHolder moved = std::move(copy);
    EXPECT_EQ(TextIn(moved), "one");
    AParcelableHolder local(STABILITY_LOCAL);
    local = moved;
    EXPECT_EQ(local.getStability(), STABILITY_VINTF);
}

TEST(ParcelableHolderTest, BindersInsideTravelWithEachCopy) {
    std::atomic<int> alive{0};
    {
        AParcelableHolder first(STABILITY_VINTF);
        WithBinder payload{MakeLocalObject(&alive)};
        AIBinder* const object = payload.binder.get();
        ASSERT_EQ(first.setParcelable(payload), STATUS_OK);
        payload.binder = nullptr;
        const AParcelableHolder copy = first;
        first.reset();
        EXPECT_EQ(alive, 1);
        AParcelableHolder received(STABILITY_VINTF);
        ASSERT_EQ(received.readFromParcel(Written(copy).get()), STATUS_OK);
        std::optional<WithBinder> read;
        ASSERT_EQ(received.getParcelable(&read), STATUS_OK);
        ASSERT_TRUE(read.has_value());
        EXPECT_EQ(read->binder.get(), object);
    }
    EXPECT_EQ(alive, 0);
}

TEST(ParcelableHolderTest, SeveralThreadsReadOneHolderAtTheSameTime) {
    std::atomic<int> alive{0};
    AParcelableHolder holder(STABILITY_VINTF);
    ASSERT_EQ(holder.setParcelable(WithBinder{MakeLocalObject(&alive)}), STATUS_OK);
    const AParcelableHolder& shared = holder;
    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 500; ++round) {
                const AParcelableHolder copy = shared;
                std::optional<WithBinder> read;
                if (shared.getParcelable(&read) == STATUS_OK && read.has_value() &&
                    Bytes(Written(shared)) == Bytes(Written(copy))) {
                    ++good;
                }
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(good, 2000);
    holder.reset();
    EXPECT_EQ(alive, 0);
}

}  // namespace
