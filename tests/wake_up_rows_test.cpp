// Labels: memory processes
// When half of a row of wake-ups goes to another processor.

#include "wake_up_rows.h"

#include <gtest/gtest.h>

#include <utility>

namespace host::testing {
namespace {

using std::chrono::microseconds;

// One thread that wakes receivers once a millisecond, on a machine where that takes so long.
class Waker {
  public:
    Waker(microseconds here, microseconds elsewhere) : here_(here), elsewhere_(elsewhere) {}

    // How many of a row went elsewhere; all before those that stayed.
    int Row(int length) {
        now_ += std::chrono::milliseconds(1);
        int apart = 0;
        for (int i = 0; i < length; ++i) {
            const bool goes = rows_.Begin(now_);
            EXPECT_TRUE(!goes || apart == i) << "wake-up " << i;
            // The way is long for the first one only: those behind it find the processor awake.
            now_ += !goes ? here_ : std::exchange(apart, apart + 1) == 0 ? elsewhere_ : here_ / 4;
            rows_.End(now_);
        }
        return apart;
    }

    // Of so many rows, those of which some went elsewhere.
    int Parted(int rows, int length) {
        int parted = 0;
        for (int i = 0; i < rows; ++i)
            parted += Row(length) != 0 ? 1 : 0;
        return parted;
    }

  private:
    const microseconds here_;
    const microseconds elsewhere_;
    WakeUpRows::Clock::time_point now_{std::chrono::seconds(1)};
    WakeUpRows rows_;
};

TEST(WakeUpRows, PartWhereTheWayIsCheap) {
    Waker waker(microseconds(9), microseconds(10));
    EXPECT_EQ(waker.Parted(30, 8), 0);
    waker.Parted(10, 8);
    EXPECT_EQ(waker.Parted(1000, 8), 1000);
    EXPECT_EQ(waker.Row(8), 4);
    // The new length is learned; one receiver alone stays where the thread is.
    waker.Parted(200, 20);
    EXPECT_EQ(waker.Row(20), 10);
    waker.Parted(200, 1);
    EXPECT_EQ(waker.Parted(1000, 1), 0);
}

TEST(WakeUpRows, StayTogetherWhereTheWayIsDear) {
    Waker waker(microseconds(5), microseconds(30));
    waker.Parted(100, 8);
    EXPECT_EQ(waker.Parted(400, 8), 0);
    const int parted = waker.Parted(100000, 8);
    EXPECT_GT(parted, 0) << "not tried again";
    EXPECT_LT(parted, 1000);
}

TEST(WakeUpRows, StayTogetherIfTheyDifferFromOneToTheNext) {
    Waker waker(microseconds(9), microseconds(1));
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(waker.Row(i % 2 == 0 ? 1 : 15), 0) << "row " << i;
}

}  // namespace
}  // namespace host::testing
