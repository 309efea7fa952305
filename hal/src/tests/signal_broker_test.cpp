// Labels: memory threads
// What the broker makes of news, between mocked managers; between real ones it is the model's.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "host_testing.h"
#include "hub_parts.h"

namespace velmora_test {
namespace {

using hub::SignalBroker;
using ::testing::_;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
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

TEST(SignalBroker, AsksOneThingOfOneManager) {
    const auto producers = ndk::SharedRefBase::make<StrictMock<MockProducers>>();
    const auto consumers = ndk::SharedRefBase::make<StrictMock<MockConsumers>>();
    SignalBroker broker(producers, consumers);
    const host::testing::LogCapture log;
    EXPECT_CALL(*producers, RequestSignalUpdate(5));
    broker.OnSignalUpdateRequested(5);
    for (const bool has_consumers : {true, false}) {
        EXPECT_CALL(*producers, UpdateSubscriptionState(-5, has_consumers));
        broker.OnConsumerSubscriptionChanged(-5, has_consumers);
    }
    EXPECT_CALL(*consumers, DispatchSignalAvailable(5));
    broker.OnSignalAdded(5);
    for (const int cause : {0, 1, 2, 3, 4, -1, INT32_MAX, INT32_MIN}) {
        const auto error = static_cast<SignalError>(cause >= 1 && cause <= 3 ? cause : 0);
        EXPECT_CALL(*consumers, DispatchSignalUnavailable(5, error));
        broker.OnSignalRemoved(5, static_cast<hub::SignalRemovedCause>(cause));
    }
    EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST(SignalBroker, GivesConsumersACopyOfTheEventThatIsTheirOwn) {
    const auto consumers = ndk::SharedRefBase::make<StrictMock<MockConsumers>>();
    SignalBroker broker(nullptr, consumers);
    const hub::VelmoraEvent event = MakeEvent(6, 7, "seven");
    const auto check_and_alter = [](int, hub::VelmoraEvent copy) {
        std::optional<hub::SignalDescriptor> payload;
        EXPECT_EQ(copy.payload.getParcelable(&payload), STATUS_OK);
        EXPECT_THAT(payload.value().tags, ElementsAre("seven"));
        EXPECT_TRUE(copy.signalId == 6 && copy.timestampMs == 7);
        copy.payload.setParcelable(hub::SignalDescriptor());
    };
    EXPECT_CALL(*consumers, DispatchSignalUpdate(5, _)).Times(2).WillRepeatedly(check_and_alter);
    broker.OnSignalUpdated(5, event);
    broker.OnSignalUpdated(5, event);
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
    const std::string no_consumer = "Invalid consumer. Can't update it.";
    EXPECT_THAT(log.Texts(), ElementsAre(no_consumer, no_consumer, no_consumer,
                                         "No producer manager registered.",
                                         "Invalid producer. Can't update it."));
    for (const auto& line : log.lines())
        EXPECT_TRUE(line.priority == ANDROID_LOG_WARN && line.tag == "velmora_hal" &&
                    line.route == host::testing::LogRoute::kPrint);
}

}  // namespace
}  // namespace velmora_test
