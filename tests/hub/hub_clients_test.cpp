// Labels: memory processes
// What clients in other processes see of the hub.

#include <gmock/gmock.h>

#include "hub_processes.h"

namespace velmora_test {
namespace {

using ::testing::ElementsAre;

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new HubHost);

TEST(HubClients, GetTheEventsOfTheirSignal) {
    HubProcess hub;
    const auto record = std::make_shared<Record>();
    const auto producer = ndk::SharedRefBase::make<RecordingProducer>(record);
    const auto consumer = ndk::SharedRefBase::make<RecordingConsumer>(record);
    std::shared_ptr<hub::IToken> consumer_token;
    std::shared_ptr<hub::IToken> producer_token;
    ASSERT_TRUE(hub.consumers()->subscribe(5, consumer, &consumer_token).isOk());
    ASSERT_TRUE(
            hub.producers()->registerProducer(MakeDescriptor(5), producer, &producer_token).isOk());
    ASSERT_TRUE(hub.producers()->updateSignal(producer_token, MakeEvent(5, 7, "seven")).isOk());
    EXPECT_THAT(record->WaitFor(2),
                ElementsAre("consumer: available 5", "consumer: update 5 @7 seven"));
}

}  // namespace
}  // namespace velmora_test
