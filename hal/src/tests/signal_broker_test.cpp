// Labels: memory threads
// The hub as a whole, in one process.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hub_parts.h"

namespace velmora_test {
namespace {

using ::testing::ElementsAre;

TEST(SignalBroker, JoinsAProducerWithItsConsumer) {
    const auto record = std::make_shared<Record>();
    const Hub hub;
    const auto producer = ndk::SharedRefBase::make<RecordingProducer>(record);
    const auto consumer = ndk::SharedRefBase::make<RecordingConsumer>(record);
    std::shared_ptr<hub::IToken> consumer_token;
    std::shared_ptr<hub::IToken> first_token;
    std::shared_ptr<hub::IToken> second_token;
    const auto done = [&](const ndk::ScopedAStatus& status) {
        EXPECT_TRUE(status.isOk()) << status.getDescription();
        hub.Fence();
    };
    done(hub.producers->registerProducer(MakeDescriptor(5), producer, &first_token));
    done(hub.consumers->subscribe(5, consumer, &consumer_token));
    done(hub.producers->updateSignal(first_token, MakeEvent(5, 7, "seven")));
    done(hub.consumers->requestSignalUpdate(consumer_token));
    done(hub.producers->unregisterProducer(first_token));
    done(hub.producers->registerProducer(MakeDescriptor(5), producer, &second_token));
    done(hub.consumers->unsubscribe(consumer_token));
    EXPECT_THAT(record->lines(),
                ElementsAre("producer: clients", "consumer: update 5 @7 seven", "producer: nudge",
                            "consumer: unavailable 5 UNREGISTERED", "consumer: available 5",
                            "producer: no clients"));
}

}  // namespace
}  // namespace velmora_test
