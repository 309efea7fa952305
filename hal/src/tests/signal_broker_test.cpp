// Labels: memory threads
// What the broker makes of news, between managers that only write down and between real ones.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "host_testing.h"
#include "hub_parts.h"

namespace velmora_test {
namespace {

using hub::SignalBroker;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FakeProducers : public hub::VelmoraHubProducerManager {
  public:
    explicit FakeProducers(Record& record) : VelmoraHubProducerManager(nullptr), record_(record) {}
    void RequestSignalUpdate(int id) override { record_.Add("request " + std::to_string(id)); }
    void UpdateSubscriptionState(int id, bool has_clients) override {
        record_.Add((has_clients ? "clients " : "no clients ") + std::to_string(id));
    }

  private:
    Record& record_;
};

class FakeConsumers : public hub::VelmoraHubConsumerManager {
  public:
    using Error = hub::IVelmoraHubConsumer::SignalError;

    explicit FakeConsumers(Record& record) : VelmoraHubConsumerManager(nullptr), record_(record) {}
    void DispatchSignalAvailable(int id) override { record_.Add("added " + std::to_string(id)); }
    void DispatchSignalUnavailable(int id, Error error) override {
        record_.Add("removed " + std::to_string(id) + ": " + std::to_string(int(error)));
    }
    // Alters what it was given: it is its own.
    void DispatchSignalUpdate(int id, hub::VelmoraEvent event) override {
        std::optional<hub::SignalDescriptor> payload;
        event.payload.getParcelable(&payload);
        record_.Add("update " + std::to_string(id) + ": " + std::to_string(event.signalId) + " @" +
                    std::to_string(event.timestampMs) + " " + payload->tags.at(0));
        event = MakeEvent(0, 0, "altered");
    }

  private:
    Record& record_;
};

// A call of the broker: what it asks of its manager, or logs if there is none.
struct Row {
    std::function<void(SignalBroker&)> call;
    bool is_for_consumers;
    std::string asked;
    std::string warning;
};

std::vector<Row> AllRows() {
    constexpr char kNoConsumer[] = "Invalid consumer. Can't update it.";
    constexpr char kNoProducer[] = "Invalid producer. Can't update it.";
    const auto event = std::make_shared<hub::VelmoraEvent>(MakeEvent(6, 7, "seven"));
    const auto update = [event](SignalBroker& broker) { broker.OnSignalUpdated(5, *event); };
    std::vector<Row> rows = {
            {[](auto& broker) { broker.OnSignalAdded(-5); }, true, "added -5", kNoConsumer},
            // Twice: what becomes of a copy leaves the event alone.
            {update, true, "update 5: 6 @7 seven", kNoConsumer},
            {update, true, "update 5: 6 @7 seven", kNoConsumer},
            {[](auto& broker) { broker.OnSignalUpdateRequested(5); }, false, "request 5",
             "No producer manager registered."},
            {[](auto& broker) { broker.OnConsumerSubscriptionChanged(5, true); }, false,
             "clients 5", kNoProducer},
            {[](auto& broker) { broker.OnConsumerSubscriptionChanged(5, false); }, false,
             "no clients 5", kNoProducer}};
    for (const int cause : {0, 1, 2, 3, 4, -1, INT32_MAX, INT32_MIN})
        rows.push_back({[=](auto& broker) {
                            broker.OnSignalRemoved(5, static_cast<hub::SignalRemovedCause>(cause));
                        },
                        true, "removed 5: " + std::to_string(cause >= 1 && cause <= 3 ? cause : 0),
                        kNoConsumer});
    return rows;
}

TEST(SignalBroker, AsksOneThingOfOneManagerOrWarnsThatItIsMissing) {
    Record record;
    const auto producers = ndk::SharedRefBase::make<FakeProducers>(record);
    const auto consumers = ndk::SharedRefBase::make<FakeConsumers>(record);
    for (const Row& row : AllRows()) {
        const bool consumer = row.is_for_consumers;
        SignalBroker there(consumer ? nullptr : producers, consumer ? consumers : nullptr);
        SignalBroker missing(consumer ? producers : nullptr, consumer ? nullptr : consumers);
        const host::testing::LogCapture log;
        row.call(there);
        EXPECT_THAT(log.lines(), IsEmpty());
        row.call(missing);
        EXPECT_THAT(record.lines(), ElementsAre(row.asked));
        EXPECT_THAT(log.Texts(), ElementsAre(row.warning));
        const auto line = log.lines().at(0);
        EXPECT_EQ(line.priority, ANDROID_LOG_WARN);
        EXPECT_EQ(line.route, host::testing::LogRoute::kPrint);
        EXPECT_EQ(line.tag, "velmora_hal");
        record.Clear();
    }
}

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
