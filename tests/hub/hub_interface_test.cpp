// Labels: memory processes
// What a client in another process may send to the hub, and what comes back.

#include <gmock/gmock.h>

#include "hub_client.h"

namespace velmora_test {
namespace {

using ::testing::ElementsAre;

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new HubHost);

using HubInterface = HubTest;

TEST_F(HubInterface, RefusesTokensThatAreNotItsOwn) {
    const auto producer_token = Register(5, first_);
    const auto consumer_token = Subscribe(5, second_);
    const auto expect_refused = [&](const std::shared_ptr<hub::IToken>& for_producers,
                                    const std::shared_ptr<hub::IToken>& for_consumers) {
        EXPECT_EQ(Answer(producers_.updateSignal(for_producers, MakeEvent(5))),
                  "-3 Invalid token.");
        EXPECT_EQ(Answer(producers_.unregisterProducer(for_producers)), "-3 Invalid token.");
        EXPECT_EQ(Answer(consumers_.unsubscribe(for_consumers)), "-3 Invalid token state.");
        EXPECT_EQ(Answer(consumers_.requestSignalUpdate(for_consumers)), "-3 Invalid token state.");
    };
    // The hub's own classes too, with the very numbers, but in another process.
    const std::shared_ptr<hub::IToken> strangers[] = {
            ndk::SharedRefBase::make<TestToken>(),
            ndk::SharedRefBase::make<hub::ProducerToken>(5, 1),
            ndk::SharedRefBase::make<hub::ConsumerToken>(5, 1),
    };
    for (const auto& stranger : strangers)
        expect_refused(stranger, stranger);
    expect_refused(consumer_token, producer_token);
    EXPECT_EQ(TableOf(producers_), (Table{{5, {1}}}));
    EXPECT_EQ(TableOf(consumers_), (Table{{5, {1}}}));
    EXPECT_EQ(Answer(consumers_.requestSignalUpdate(consumer_token)), "OK");
    EXPECT_THAT(first_->WaitFor(2), ElementsAre("producer: clients", "producer: nudge"));
}

TEST_F(HubInterface, PassesALongEventOnWhole) {
    const auto subscription = Subscribe(5, first_);
    hub_.Fence();  // a producer that comes before is told of the consumer
    const auto token = Register(5, second_);
    const std::string tag(100'000, 'x');
    EXPECT_EQ(Answer(producers_.updateSignal(token, MakeEvent(-1, INT64_MAX, tag))), "OK");
    EXPECT_THAT(first_->WaitFor(2), ElementsAre("consumer: available 5",
                                                "consumer: update -1 @9223372036854775807 " + tag));
}

TEST_F(HubInterface, MayBeCalledFromInsideACallback) {
    std::shared_ptr<hub::IToken> first;
    std::shared_ptr<hub::IToken> second;
    const auto answers = std::make_shared<Record>();
    const auto reentrant = [&](const std::string& line) {
        if (line == "consumer: available 5") {
            second = Subscribe(5, first_);
            answers->Add(second == nullptr ? "refused" : "OK");
        } else if (line == "consumer: update 5 @1") {
            answers->Add(Answer(consumers_.requestSignalUpdate(first)));
        } else {
            for (const auto& token : {first, second})
                answers->Add(Answer(consumers_.unsubscribe(token)));
        }
    };
    first = velmora_test::Subscribe(consumers_, 5, MakeConsumer(first_, "consumer", reentrant));
    hub_.Fence();  // a producer that comes before is told of the consumer
    const auto token = Register(5, second_);
    EXPECT_THAT(answers->WaitFor(1), ElementsAre("OK"));
    EXPECT_EQ(Answer(producers_.updateSignal(token, MakeEvent(5, 1))), "OK");
    EXPECT_THAT(second_->WaitFor(1), ElementsAre("producer: nudge"));
    EXPECT_EQ(Answer(producers_.unregisterProducer(token)), "OK");
    EXPECT_THAT(answers->WaitFor(4), ElementsAre("OK", "OK", "OK", "OK"));
    EXPECT_EQ(Subscriptions(consumers_), Table());
    // Once available, twice the update and the loss.
    EXPECT_EQ(first_->WaitFor(5).size(), 5u);
}

}  // namespace
}  // namespace velmora_test
