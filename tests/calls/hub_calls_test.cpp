// Labels: memory processes
#include <aidl/vendor/quorin/velmora_hub/BnToken.h>
#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubConsumer.h>
#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubConsumerManager.h>
#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubProducer.h>
#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubProducerManager.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>

#include "node.h"

namespace calls_test {
namespace {

using aidl::vendor::quorin::velmora_hub::BnToken;
using aidl::vendor::quorin::velmora_hub::BnVelmoraHubConsumer;
using aidl::vendor::quorin::velmora_hub::BnVelmoraHubConsumerManager;
using aidl::vendor::quorin::velmora_hub::BnVelmoraHubProducer;
using aidl::vendor::quorin::velmora_hub::BnVelmoraHubProducerManager;
using aidl::vendor::quorin::velmora_hub::IToken;
using aidl::vendor::quorin::velmora_hub::IVelmoraHubConsumer;
using aidl::vendor::quorin::velmora_hub::IVelmoraHubConsumerManager;
using aidl::vendor::quorin::velmora_hub::IVelmoraHubProducer;
using aidl::vendor::quorin::velmora_hub::IVelmoraHubProducerManager;
using aidl::vendor::quorin::velmora_hub::SignalDescriptor;
using aidl::vendor::quorin::velmora_hub::VelmoraEvent;
using ::testing::ElementsAre;
using SignalError = IVelmoraHubConsumer::SignalError;

const char kProducers[] = "vendor.quorin.velmora_hub.IVelmoraHubProducerManager/default";
const char kConsumers[] = "vendor.quorin.velmora_hub.IVelmoraHubConsumerManager/default";
const char kTouchInput[] = "com.quorin.input.ISkeldaNotificationService/default";

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(
        new CallsHost({HUB_MANIFESTS "/velmora_hub.xml", HUB_MANIFESTS "/touch_input.xml"}));

// Lines that threads write and one waits for.
class Record {
  public:
    ScopedAStatus Add(const std::string& line) {
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(line);
        changed_.notify_all();
        return ScopedAStatus::ok();
    }
    // All lines, once there are so many; fewer if the time is up before.
    std::vector<std::string> WaitFor(size_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait_for(lock, host::testing::kTestLimit, [&] { return lines_.size() >= count; });
        return lines_;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> lines_ GUARDED_BY(mutex_);
};

class Consumer : public BnVelmoraHubConsumer {
  public:
    ScopedAStatus onSignalAvailable(int32_t id) override {
        return record.Add("available " + std::to_string(id));
    }
    ScopedAStatus onSignalUpdate(const VelmoraEvent& event) override {
        std::optional<SignalDescriptor> payload;
        event.payload.getParcelable(&payload);
        return record.Add("update " + std::to_string(event.signalId) + " " +
                          std::to_string(event.timestampMs) +
                          (payload ? " " + payload->toString() : ""));
    }
    ScopedAStatus onSignalUnavailable(int32_t id, SignalError error) override {
        return record.Add("unavailable " + std::to_string(id) + " " + toString(error));
    }

    Record record;
};

class Producer : public BnVelmoraHubProducer {
  public:
    ScopedAStatus onClientsUpdated(bool hasClients) override {
        return record.Add(hasClients ? "clients" : "no clients");
    }
    ScopedAStatus nudge() override { return record.Add("nudge"); }

    Record record;
};

class Token : public BnToken {};

// One signal, whose calls go to whoever they are for, and nothing else of what the hub does.
struct FakeHub {
    std::mutex mutex;
    SignalDescriptor descriptor GUARDED_BY(mutex);
    std::shared_ptr<IVelmoraHubProducer> producer GUARDED_BY(mutex);
    std::vector<std::shared_ptr<IVelmoraHubConsumer>> consumers GUARDED_BY(mutex);
    const std::shared_ptr<IToken> token = ndk::SharedRefBase::make<Token>();

    ScopedAStatus Judge(const std::shared_ptr<IToken>& other) const {
        // The very object, although it was away.
        return other == token ? ScopedAStatus::ok()
                              : ScopedAStatus::fromExceptionCode(EX_ILLEGAL_ARGUMENT);
    }
};

class ProducerManager : public BnVelmoraHubProducerManager {
  public:
    explicit ProducerManager(FakeHub* hub) : hub_(hub) {}

    ScopedAStatus registerProducer(const SignalDescriptor& descriptor,
                                   const std::shared_ptr<IVelmoraHubProducer>& producer,
                                   std::shared_ptr<IToken>* token) override {
        std::lock_guard<std::mutex> lock(hub_->mutex);
        if (hub_->producer != nullptr) return ScopedAStatus::fromExceptionCode(EX_ILLEGAL_STATE);
        hub_->descriptor = descriptor;
        hub_->producer = producer;
        for (const auto& consumer : hub_->consumers)
            consumer->onSignalAvailable(descriptor.signalId);
        *token = hub_->token;
        return ScopedAStatus::ok();
    }
    ScopedAStatus updateSignal(const std::shared_ptr<IToken>& token,
                               const VelmoraEvent& event) override {
        std::lock_guard<std::mutex> lock(hub_->mutex);
        for (const auto& consumer : hub_->consumers)
            consumer->onSignalUpdate(event);
        return hub_->Judge(token);
    }
    // The signal goes for every reason there is.
    ScopedAStatus unregisterProducer(const std::shared_ptr<IToken>& token) override {
        std::lock_guard<std::mutex> lock(hub_->mutex);
        for (SignalError error : ndk::enum_range<SignalError>()) {
            for (const auto& consumer : hub_->consumers)
                consumer->onSignalUnavailable(hub_->descriptor.signalId, error);
        }
        hub_->producer = nullptr;
        return hub_->Judge(token);
    }

  private:
    FakeHub* const hub_;
};

class ConsumerManager : public BnVelmoraHubConsumerManager {
  public:
    explicit ConsumerManager(FakeHub* hub) : hub_(hub) {}

    ScopedAStatus subscribe(int32_t, const std::shared_ptr<IVelmoraHubConsumer>& consumer,
                            std::shared_ptr<IToken>* token) override {
        std::lock_guard<std::mutex> lock(hub_->mutex);
        hub_->consumers.push_back(consumer);
        if (hub_->producer != nullptr) hub_->producer->onClientsUpdated(true);
        *token = hub_->token;
        return ScopedAStatus::ok();
    }
    ScopedAStatus unsubscribe(const std::shared_ptr<IToken>& token) override {
        std::lock_guard<std::mutex> lock(hub_->mutex);
        hub_->consumers.clear();
        if (hub_->producer != nullptr) hub_->producer->onClientsUpdated(false);
        return hub_->Judge(token);
    }
    ScopedAStatus requestSignalUpdate(const std::shared_ptr<IToken>& token) override {
        std::lock_guard<std::mutex> lock(hub_->mutex);
        if (hub_->producer != nullptr) hub_->producer->nudge();
        return hub_->Judge(token);
    }

  private:
    FakeHub* const hub_;
};

template <typename Manager>
std::shared_ptr<Manager> Find(const char* name) {
    return Manager::fromBinder(SpAIBinder(AServiceManager_waitForService(name)));
}

HOST_HELPER(Hub) {
    ABinderProcess_startThreadPool();
    FakeHub hub;
    const auto producers = ndk::SharedRefBase::make<ProducerManager>(&hub);
    const auto consumers = ndk::SharedRefBase::make<ConsumerManager>(&hub);
    if (AServiceManager_addService(producers->asBinder().get(), kProducers) != EX_NONE ||
        AServiceManager_addService(consumers->asBinder().get(), kConsumers) != EX_NONE) {
        return 1;
    }
    channel.Serve([](const std::string& line) { return line; });
    // The managers refer to the hub, and may be called until the end.
    _exit(0);
}

HOST_HELPER(Subscriber) {
    ABinderProcess_startThreadPool();
    const auto consumer = ndk::SharedRefBase::make<Consumer>();
    std::shared_ptr<IToken> token;
    if (!Find<IVelmoraHubConsumerManager>(kConsumers)->subscribe(1, consumer, &token).isOk())
        return 1;
    channel.Serve([&](const std::string& count) {
        std::string all;
        for (const std::string& line :
             consumer->record.WaitFor(static_cast<size_t>(atoi(count.c_str()))))
            all += line + ";";
        return all;
    });
    return 0;
}

class HubCalls : public ::testing::Test {
  protected:
    void SetUp() override {
        // Answers when it has published both: names that the last test's hub held are gone by then.
        ASSERT_EQ(hub_.Command("ready"), "ready");
        producers_ = Find<IVelmoraHubProducerManager>(kProducers);
        consumers_ = Find<IVelmoraHubConsumerManager>(kConsumers);
        ASSERT_NE(producers_, nullptr);
        ASSERT_NE(consumers_, nullptr);
    }

    host::testing::Helper hub_{"Hub"};
    std::shared_ptr<IVelmoraHubProducerManager> producers_;
    std::shared_ptr<IVelmoraHubConsumerManager> consumers_;
    const std::shared_ptr<Producer> producer_ = ndk::SharedRefBase::make<Producer>();
    const std::shared_ptr<Consumer> consumer_ = ndk::SharedRefBase::make<Consumer>();
    std::shared_ptr<IToken> token_;
};

SignalDescriptor MakeDescriptor(int32_t id) {
    SignalDescriptor descriptor;
    descriptor.signalId = id;
    descriptor.tags = {"", "\u00e9"};
    descriptor.ttlMs = INT64_MAX;
    return descriptor;
}

VelmoraEvent MakeEvent(int64_t time) {
    VelmoraEvent event;
    event.signalId = 1;
    event.timestampMs = time;
    return event;
}

TEST_F(HubCalls, CarryEveryMethodOfBothManagersAndTheirClients) {
    ASSERT_TRUE(consumers_->subscribe(1, consumer_, &token_).isOk());
    ASSERT_TRUE(producers_->registerProducer(MakeDescriptor(-7), producer_, &token_).isOk());
    ASSERT_TRUE(consumers_->requestSignalUpdate(token_).isOk());
    VelmoraEvent event = MakeEvent(INT64_MIN);
    ASSERT_EQ(event.payload.setParcelable(MakeDescriptor(5)), STATUS_OK);
    ASSERT_TRUE(producers_->updateSignal(token_, event).isOk());
    ASSERT_TRUE(producers_->updateSignal(token_, MakeEvent(2)).isOk());
    EXPECT_EQ(
            producers_->registerProducer(MakeDescriptor(1), producer_, &token_).getExceptionCode(),
            EX_ILLEGAL_STATE);
    ASSERT_TRUE(consumers_->unsubscribe(token_).isOk());
    EXPECT_THAT(producer_->record.WaitFor(2), ElementsAre("nudge", "no clients"));
    EXPECT_THAT(consumer_->record.WaitFor(3),
                ElementsAre("available -7",
                            "update 1 -9223372036854775808 SignalDescriptor{signalId: 5, tags: [, "
                            "\u00e9], ttlMs: 9223372036854775807}",
                            "update 1 2"));
    ASSERT_TRUE(consumers_->subscribe(1, consumer_, &token_).isOk());
    ASSERT_TRUE(producers_->unregisterProducer(token_).isOk());
    EXPECT_EQ(producer_->record.WaitFor(3).back(), "clients");
}

TEST_F(HubCalls, CarryEveryReasonWhyASignalGoes) {
    ASSERT_TRUE(producers_->registerProducer(MakeDescriptor(3), producer_, &token_).isOk());
    ASSERT_TRUE(consumers_->subscribe(3, consumer_, &token_).isOk());
    ASSERT_TRUE(producers_->unregisterProducer(token_).isOk());
    EXPECT_THAT(consumer_->record.WaitFor(4),
                ElementsAre("unavailable 3 UNKNOWN", "unavailable 3 SOURCE_FAILED",
                            "unavailable 3 REPLACED", "unavailable 3 UNREGISTERED"));
}

TEST_F(HubCalls, ToAStoppedConsumerDelayNobody) {
    host::testing::Helper stopped("Subscriber");
    ASSERT_EQ(stopped.Command("0"), "");
    ASSERT_TRUE(producers_->registerProducer(MakeDescriptor(1), producer_, &token_).isOk());
    ASSERT_TRUE(consumers_->subscribe(1, consumer_, &token_).isOk());
    ASSERT_TRUE(stopped.process().Stop());
    constexpr int kEvents = 300;
    std::vector<std::string> expected;
    std::string joined = "available 1;";
    for (int i = 0; i < kEvents; ++i) {
        ASSERT_TRUE(producers_->updateSignal(token_, MakeEvent(i)).isOk());
        expected.push_back("update 1 " + std::to_string(i));
        joined += expected.back() + ";";
    }
    EXPECT_EQ(consumer_->record.WaitFor(kEvents), expected);
    ASSERT_TRUE(stopped.process().Continue());
    EXPECT_EQ(stopped.Command(std::to_string(kEvents + 1)), joined);
}

TEST_F(HubCalls, RefuseTokensThatAreNullOrOfAnotherOrigin) {
    ASSERT_TRUE(producers_->registerProducer(MakeDescriptor(1), producer_, &token_).isOk());
    const auto foreign = ndk::SharedRefBase::make<Token>();
    EXPECT_EQ(producers_->updateSignal(foreign, MakeEvent(1)).getExceptionCode(),
              EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(consumers_->unsubscribe(foreign).getExceptionCode(), EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(producers_->updateSignal(nullptr, MakeEvent(1)).getStatus(), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(consumers_->subscribe(1, nullptr, &token_).getStatus(), STATUS_UNEXPECTED_NULL);
    EXPECT_TRUE(producers_->updateSignal(token_, MakeEvent(1)).isOk());
}

TEST_F(HubCalls, TellTheFrozenVersionAndHash) {
    std::ifstream file(HUB_API_DIR "/.hash");
    std::string frozen;
    ASSERT_TRUE(std::getline(file, frozen));
    ASSERT_TRUE(producers_->registerProducer(MakeDescriptor(1), producer_, &token_).isOk());
    const auto expect_frozen = [&](auto& interface) {
        int32_t version = 0;
        std::string hash;
        EXPECT_TRUE(interface.getInterfaceVersion(&version).isOk());
        EXPECT_TRUE(interface.getInterfaceHash(&hash).isOk());
        EXPECT_EQ(version, 1);
        EXPECT_EQ(hash, frozen);
    };
    expect_frozen(*producers_);
    expect_frozen(*consumers_);
    expect_frozen(*token_);
    EXPECT_TRUE(token_->isRemote());
}

TEST(HubNames, AreDeclaredByItsFragmentsAndNoOthersMayBePublished) {
    for (const char* name : {kProducers, kConsumers, kTouchInput})
        EXPECT_TRUE(AServiceManager_isDeclared(name)) << name;
    const SpAIBinder token = ndk::SharedRefBase::make<Token>()->asBinder();
    for (const char* name : {"vendor.quorin.velmora_hub.IVelmoraHubProducerManager/second",
                             "vendor.quorin.velmora_hub.IToken/default", "hub"}) {
        EXPECT_FALSE(AServiceManager_isDeclared(name)) << name;
        EXPECT_EQ(AServiceManager_addService(token.get(), name), EX_ILLEGAL_ARGUMENT) << name;
    }
    // Each of the package's other interfaces is as stable as the token.
    const SpAIBinder others[] = {ndk::SharedRefBase::make<Producer>()->asBinder(),
                                 ndk::SharedRefBase::make<Consumer>()->asBinder()};
    for (const SpAIBinder& other : others)
        EXPECT_EQ(AServiceManager_addService(other.get(), "hub"), EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(AServiceManager_addService(token.get(), kTouchInput), EX_NONE);
}

}  // namespace
}  // namespace calls_test
