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
    std::shared_ptr<hub::IToken> producer_token;
    ASSERT_TRUE(
            hub.producers->registerProducer(MakeDescriptor(5), producer, &producer_token).isOk());
    hub.Fence();
    ASSERT_TRUE(hub.consumers->subscribe(5, consumer, &consumer_token).isOk());
    ASSERT_TRUE(hub.producers->updateSignal(producer_token, MakeEvent(5, 7, "seven")).isOk());
    ASSERT_TRUE(hub.consumers->requestSignalUpdate(consumer_token).isOk());
    ASSERT_TRUE(hub.producers->unregisterProducer(producer_token).isOk());
    ASSERT_TRUE(hub.consumers->unsubscribe(consumer_token).isOk());
    hub.Fence();
    EXPECT_THAT(record->lines(), ElementsAre("producer: clients", "consumer: update 5 @7 seven",
                                             "consumer: unavailable 5 UNREGISTERED"));
}

}  // namespace
}  // namespace velmora_test
