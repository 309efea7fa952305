// Labels: memory processes
// A consumer whose process stands still, and everybody else.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "hub_client.h"

namespace velmora_test {
namespace {

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new HubHost);

class StoppedConsumer : public HubTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(stopped_.Do("subscribe 5 a"), "OK");
        hub_.Fence();  // a producer that comes before is told of the consumer
        token_ = Register(5, second_);
        ASSERT_EQ(stopped_.Do("lines 1"), "a: available 5;");
        velmora_test::Subscribe(consumers_, 5, healthy_);
        ASSERT_TRUE(stopped_.process().Stop());
    }

    // Pushes events, a few at a time, until all have been sent, and returns what a consumer is
    // told; the healthy one is told everything at once.
    std::vector<std::string> Push(size_t events) {
        std::vector<std::string> told;
        const std::string tag(100, 'x');
        while (told.size() < events) {
            const auto time = static_cast<int64_t>(told.size());
            EXPECT_EQ(Answer(producers_.updateSignal(token_, MakeEvent(5, time, tag))), "OK");
            told.push_back("a: update 5 @" + std::to_string(time) + " " + tag);
            if (told.size() % 10 != 0) continue;
            EXPECT_EQ(first_->WaitFor(told.size()), told);
        }
        hub_.Fence();  // in which order the two are called is left open
        return told;
    }

    // The median of what others' calls take.
    std::chrono::nanoseconds CallTime() {
        std::vector<std::chrono::nanoseconds> times;
        for (int i = 0; i < 99; ++i) {
            const auto start = std::chrono::steady_clock::now();
            const auto token = velmora_test::Subscribe(consumers_, 6, healthy_);
            EXPECT_EQ(Answer(consumers_.requestSignalUpdate(token)), "OK");
            EXPECT_EQ(Answer(consumers_.unsubscribe(token)), "OK");
            times.push_back(std::chrono::steady_clock::now() - start);
            hub_.Fence();
        }
        std::nth_element(times.begin(), times.begin() + 49, times.end());
        return times[49];
    }

    HubClient stopped_;
    const std::shared_ptr<RecordingConsumer> healthy_ =
            ndk::SharedRefBase::make<RecordingConsumer>(first_, "a");
    std::shared_ptr<hub::IToken> token_;
};

TEST_F(StoppedConsumer, DelaysNobodyAndGetsWhatWasAcceptedInOrder) {
    const auto pushed = Push(400);
    const auto time = CallTime();
    ASSERT_TRUE(stopped_.process().Continue());
    std::string told = "a: available 5;";
    for (const std::string& line : pushed)
        told += line + ";";
    EXPECT_EQ(stopped_.Do("lines 401"), told);
    EXPECT_LT(time, CallTime() * 5);
}

}  // namespace
}  // namespace velmora_test
