// Labels: memory threads
// What the broker makes of news, between mocked managers; between real ones it is the model's.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host_testing.h"
#include "hub_parts.h"

namespace velmora_test {
namespace {

using hub::SignalBroker;
using ::testing::ElementsAre;
using ::testing::StrictMock;
using SignalError = hub::IVelmoraHubConsumer::SignalError;

struct MockProducers : hub::VelmoraHubProducerManager {
    MockProducers() : VelmoraHubProducerManager(nullptr) {}
    MOCK_METHOD(void, RequestSignalUpdate, (int), (override));
    MOCK_METHOD(void, UpdateSubscriptionState, (int, bool), (override));
};

struct MockConsumers : hub::VelmoraHubConsumerManager {
    MockConsumers() : VelmoraHubConsumerManager(nullptr) {}
    MOCK_METHOD(void, DispatchSignalAvailable, (int), (override));
    MOCK_METHOD(void, DispatchSignalUnavailable, (int, SignalError), (override));
    MOCK_METHOD(void, DispatchSignalUpdate, (int, hub::VelmoraEvent), (override));
};

TEST(SignalBroker, TellsConsumersTheCauseOrThatItIsUnknown) {
    const auto consumers = ndk::SharedRefBase::make<StrictMock<MockConsumers>>();
    SignalBroker broker(nullptr, consumers);
    for (const int cause : {0, 1, 2, 3, 4, -1, INT32_MAX, INT32_MIN}) {
        const auto error = static_cast<SignalError>(cause >= 1 && cause <= 3 ? cause : 0);
        EXPECT_CALL(*consumers, DispatchSignalUnavailable(5, error));
        broker.OnSignalRemoved(5, static_cast<hub::SignalRemovedCause>(cause));
    }
}

TEST(SignalBroker, WarnsOfTheManagerThatIsMissingAndLeavesTheOtherAlone) {
    SignalBroker to_producers(ndk::SharedRefBase::make<StrictMock<MockProducers>>(), nullptr);
    SignalBroker to_consumers(nullptr, ndk::SharedRefBase::make<StrictMock<MockConsumers>>());
    const host::testing::LogCapture log;
    to_producers.OnSignalAdded(5);
    to_producers.OnSignalRemoved(5, hub::SignalRemovedCause::UNREGISTERED);
    to_producers.OnSignalUpdated(5, MakeEvent(5));
    to_consumers.OnSignalUpdateRequested(5);
    to_consumers.OnConsumerSubscriptionChanged(5, true);
    const std::string no_consumer = "velmora_hal W print Invalid consumer. Can't update it.";
    EXPECT_THAT(Lines(log), ElementsAre(no_consumer, no_consumer, no_consumer,
                                        "velmora_hal W print No producer manager registered.",
                                        "velmora_hal W print Invalid producer. Can't update it."));
}

}  // namespace
}  // namespace velmora_test
