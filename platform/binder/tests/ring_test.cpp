// Labels: memory
#include "src/ring.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <vector>

#include "src/limits.h"

namespace host {
namespace {

// One ring, as the writer and the reader map it.
class Ring : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(written_.Create(&file_));
        ASSERT_TRUE(read_.Map(file_.get()));
        writer_.emplace(&written_, file_.get());
        reader_.emplace(&read_);
    }

    // Whether the writer found a place for a record filled with `value`.
    bool Write(size_t size, uint8_t value) {
        uint8_t* place = writer_->Begin(size);
        if (place == nullptr) return false;
        memset(place, value, size);
        writer_->Publish();
        return true;
    }

    // The next record is one of that size, all `value`; the reader runs it.
    bool Read(size_t size, uint8_t value) {
        const uint8_t* body;
        size_t body_size;
        if (reader_->Front(&body, &body_size) != RingReader::Result::kRecord) return false;
        bool same = body_size >= size &&
                    RingWriter::RecordSize(body_size) == RingWriter::RecordSize(size);
        for (size_t i = 0; same && i < size; ++i)
            same = body[i] == value;
        reader_->Pop();
        reader_->Finish(RingWriter::RecordSize(size));
        return same;
    }

    RingReader::Result Front() {
        const uint8_t* body;
        size_t size;
        return reader_->Front(&body, &size);
    }

    UniqueFd file_;
    RingMemory written_;
    RingMemory read_;
    std::optional<RingWriter> writer_;
    std::optional<RingReader> reader_;
};

TEST_F(Ring, CarriesRecordsOfEverySizeAcrossItsEnd) {
    const size_t sizes[] = {0, 1, 7, 8, 9, 4096, 100'000, 300'000, kMaxOnewayPendingBytes - 8};
    uint8_t value = 0;
    for (int round = 0; round < 50; ++round) {
        for (size_t size : sizes) {
            ASSERT_TRUE(Write(size, ++value)) << size;
            ASSERT_TRUE(Read(size, value)) << size;
        }
    }
    EXPECT_EQ(Front(), RingReader::Result::kEmpty);
}

TEST_F(Ring, TakesAllThatTheBoundAdmitsWhereverLightTrafficHasLeftIt) {
    for (size_t light = 0; light < RingMemory::kDataBytes; light += 5'000) {
        for (size_t record : {size_t{1'000}, size_t{60'000}, kMaxOnewayPendingBytes}) {
            SetUp();
            for (size_t used = 0; used < light; used += 1'000)
                ASSERT_TRUE(Write(992, 1) && Read(992, 1));
            const size_t count = kMaxOnewayPendingBytes / record;
            for (size_t i = 0; i < count; ++i)
                ASSERT_TRUE(Write(record - 8, 2)) << i << " behind " << light;
            for (size_t i = 0; i < count; ++i)
                ASSERT_TRUE(Read(record - 8, 2)) << i << " behind " << light;
        }
    }
}

TEST_F(Ring, HasRoomForWhateverTheBoundAdmits) {
    const size_t sizes[] = {200'000, 8, 100'000, 4'000, 180'000, 50'000};
    std::vector<size_t> unread;
    for (int i = 0; i < 3'000; ++i) {
        size_t size = sizes[i % std::size(sizes)];
        while (*writer_->Pending() + RingWriter::RecordSize(size) > kMaxOnewayPendingBytes) {
            ASSERT_TRUE(Read(unread.front(), 7));
            unread.erase(unread.begin());
        }
        ASSERT_TRUE(Write(size, 7)) << i;
        unread.push_back(size);
    }
}

TEST_F(Ring, AsksForAWakeUpOnlyWhenTheReaderSleeps) {
    writer_->Begin(8);
    EXPECT_EQ(writer_->Publish(), WakeUp::kNone) << "it has not slept yet";
    EXPECT_FALSE(reader_->Sleep(WakeUp::kFutex)) << "something is there";
    ASSERT_TRUE(Read(8, 0));
    EXPECT_TRUE(reader_->Sleep(WakeUp::kFutex));
    writer_->Begin(8);
    EXPECT_EQ(writer_->Publish(), WakeUp::kFutex);
    writer_->Begin(8);
    EXPECT_EQ(writer_->Publish(), WakeUp::kNone) << "one wake-up is enough";
    EXPECT_FALSE(reader_->Sleep(WakeUp::kFutexWhenMuch));
    size_t written = 0;
    for (WakeUp wake = WakeUp::kNone; wake == WakeUp::kNone; written += 1024) {
        ASSERT_TRUE(writer_->Pending().has_value() && writer_->Begin(1016) != nullptr);
        wake = writer_->Publish();
        ASSERT_NE(wake, WakeUp::kByte);
    }
    EXPECT_EQ((written + 32) / 1024, kMaxOnewayPendingBytes / 32 / 1024) << "with two small ones";
}

TEST_F(Ring, GivesThePagesOfABurstBack) {
    auto resident = [this] {
        struct stat facts {};
        fstat(file_.get(), &facts);
        return static_cast<size_t>(facts.st_blocks) * 512;
    };
    for (int i = 0; i < 100; ++i)
        ASSERT_TRUE(Write(5'000, 1));
    for (int i = 0; i < 100; ++i)
        ASSERT_TRUE(Read(5'000, 1));
    ASSERT_GE(resident(), size_t{500'000});
    ASSERT_TRUE(Write(8, 1) && Read(8, 1));
    EXPECT_LE(resident(), size_t{128 * 1024});
}

TEST_F(Ring, TellsTheWriterOfAReaderWhosePositionsAreImpossible) {
    ASSERT_TRUE(Write(64, 1) && Read(64, 1));
    RingControl& control = read_.control();
    const uint64_t finished = control.finished, consumed = control.consumed;
    for (uint64_t wrong : {finished + 8, ~uint64_t{0}}) {
        control.finished = wrong;
        EXPECT_FALSE(writer_->Pending()) << wrong;
    }
    control.finished = finished;
    ASSERT_TRUE(writer_->Pending());
    control.finished = 0;
    EXPECT_FALSE(writer_->Pending()) << "it went back";
    for (uint64_t wrong : {consumed + 8, ~uint64_t{0}}) {
        control.consumed = wrong;
        EXPECT_EQ(writer_->Begin(8), nullptr) << wrong;
    }
    control.consumed = consumed;
    ASSERT_NE(writer_->Begin(8), nullptr);
    control.consumed = 0;
    EXPECT_EQ(writer_->Begin(8), nullptr) << "it went back";
}

}  // namespace
}  // namespace host
