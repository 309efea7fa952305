// Labels: memory processes
// What a client in another process may send to the hub, and what comes back.

#include <android/binder_parcel_utils.h>
#include <gmock/gmock.h>

#include "hub_client.h"

namespace velmora_test {
namespace {

using hub::IVelmoraHubConsumerManager;
using hub::IVelmoraHubProducerManager;
using ::testing::ElementsAre;

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new HubHost);

using HubInterface = HubTest;

class Token : public hub::BnToken {};

TEST_F(HubInterface, RefusesTokensThatAreNullOrNotItsOwn) {
    const auto producer_token = Register(5, first_);
    const auto consumer_token = Subscribe(5, second_);
    const auto own = ndk::SharedRefBase::make<Token>();
    // The hub's own classes, with the very numbers, in another process.
    const auto twin = ndk::SharedRefBase::make<hub::ProducerToken>(5, 1);
    const auto consumer_twin = ndk::SharedRefBase::make<hub::ConsumerToken>(5, 1);
    const std::string null = "status " + std::to_string(STATUS_UNEXPECTED_NULL);
    struct Case {
        const char* name;
        std::shared_ptr<hub::IToken> for_producers;
        std::shared_ptr<hub::IToken> for_consumers;
        std::string producers_answer = "-3 Invalid token.";
        std::string consumers_answer = "-3 Invalid token state.";
    };
    const Case cases[] = {
            {"null", nullptr, nullptr, null, null},
            {"the client's own", own, own},
            {"the other manager's", consumer_token, producer_token},
            {"another hub's", twin, consumer_twin},
    };
    for (const auto& [name, first, second, producers_answer, consumers_answer] : cases) {
        SCOPED_TRACE(name);
        EXPECT_EQ(Answer(producers_.updateSignal(first, MakeEvent(5))), producers_answer);
        EXPECT_EQ(Answer(producers_.unregisterProducer(first)), producers_answer);
        EXPECT_EQ(Answer(consumers_.unsubscribe(second)), consumers_answer);
        EXPECT_EQ(Answer(consumers_.requestSignalUpdate(second)), consumers_answer);
    }
    EXPECT_EQ(TableOf(producers_), (Table{{5, {1}}}));
    EXPECT_EQ(TableOf(consumers_), (Table{{5, {1}}}));
    EXPECT_EQ(Answer(consumers_.requestSignalUpdate(consumer_token)), "OK");
    EXPECT_THAT(first_->WaitFor(2), ElementsAre("producer: clients", "producer: nudge"));
}

TEST_F(HubInterface, RefusesCallsThatAreNotWellFormedAndGoesOn) {
    const ndk::SpAIBinder producers = producers_.asBinder();
    const ndk::SpAIBinder consumers = consumers_.asBinder();
    const ndk::SpAIBinder wrong = ndk::SharedRefBase::make<Token>()->asBinder();
    constexpr auto kSubscribe = IVelmoraHubConsumerManager::TRANSACTION_subscribe;
    constexpr auto kRegister = IVelmoraHubProducerManager::TRANSACTION_registerProducer;
    struct Case {
        AIBinder* manager;
        transaction_code_t code;
        AIBinder* client;
        binder_status_t status;
    };
    const Case cases[] = {
            {consumers.get(), kSubscribe, nullptr, STATUS_UNEXPECTED_NULL},
            {consumers.get(), kSubscribe, wrong.get(), STATUS_BAD_TYPE},
            {consumers.get(), 4, wrong.get(), STATUS_UNKNOWN_TRANSACTION},
            {producers.get(), kRegister, nullptr, STATUS_UNEXPECTED_NULL},
            {producers.get(), kRegister, wrong.get(), STATUS_BAD_TYPE},
            {producers.get(), 4, wrong.get(), STATUS_UNKNOWN_TRANSACTION},
    };
    for (const auto& [manager, code, client, status] : cases) {
        ndk::ScopedAParcel in, out;
        ASSERT_EQ(AIBinder_prepareTransaction(manager, in.getR()), STATUS_OK);
        if (manager == consumers.get())
            AParcel_writeInt32(in.get(), 5);
        else
            ndk::AParcel_writeData(in.get(), MakeDescriptor(5));
        AParcel_writeStrongBinder(in.get(), client);
        EXPECT_EQ(AIBinder_transact(manager, code, in.getR(), out.getR(), 0), status) << code;
    }
    EXPECT_EQ(TableOf(producers_), Table());
    EXPECT_EQ(TableOf(consumers_), Table());
}

// A payload of which the hub has no declaration.
struct Blob {
    static constexpr const char* descriptor = "test.Blob";
    static constexpr ndk::parcel_stability_t _aidl_parcelable_stability = ndk::STABILITY_VINTF;
    std::vector<uint8_t> bytes;

    binder_status_t writeToParcel(AParcel* parcel) const {
        return ndk::AParcel_writeVector(parcel, bytes);
    }
};

std::string BytesOf(const hub::VelmoraEvent& event) {
    const ndk::ScopedAParcel parcel(AParcel_create());
    event.writeToParcel(parcel.get());
    std::string bytes(static_cast<size_t>(AParcel_getDataSize(parcel.get())), '\0');
    AParcel_marshal(parcel.get(), reinterpret_cast<uint8_t*>(bytes.data()), 0, bytes.size());
    return bytes;
}

class BytesConsumer : public RecordingConsumer {
  public:
    explicit BytesConsumer(const std::shared_ptr<Record>& bytes)
            : RecordingConsumer(bytes), bytes_(bytes) {}
    ndk::ScopedAStatus onSignalUpdate(const hub::VelmoraEvent& event) override {
        bytes_->Add(BytesOf(event));
        return ndk::ScopedAStatus::ok();
    }

  private:
    const std::shared_ptr<Record> bytes_;
};

TEST_F(HubInterface, PassesEventsOnByteForByte) {
    velmora_test::Subscribe(consumers_, 5, ndk::SharedRefBase::make<BytesConsumer>(first_));
    const auto token = Register(5, second_);
    std::vector<std::string> sent = {"consumer: available 5"};
    for (const size_t size : {0u, 1u, 3u, 4u, 200'000u}) {
        hub::VelmoraEvent event = MakeEvent(-1, INT64_MAX);
        Blob blob;
        for (size_t i = 0; i < size; ++i)
            blob.bytes.push_back(static_cast<uint8_t>(i * i));
        ASSERT_EQ(event.payload.setParcelable(blob), STATUS_OK);
        EXPECT_EQ(Answer(producers_.updateSignal(token, event)), "OK");
        sent.push_back(BytesOf(event));
    }
    EXPECT_EQ(first_->WaitFor(sent.size()), sent);
}

TEST_F(HubInterface, TellsItsVersionAndHash) {
    const auto expect_frozen = [](auto& interface) {
        int32_t version = 0;
        std::string hash;
        EXPECT_EQ(Answer(interface.getInterfaceVersion(&version)), "OK");
        EXPECT_EQ(Answer(interface.getInterfaceHash(&hash)), "OK");
        EXPECT_EQ(version, 1);
        EXPECT_EQ(hash, hub::IToken::hash);
        EXPECT_TRUE(interface.isRemote());
    };
    expect_frozen(producers_);
    expect_frozen(consumers_);
    expect_frozen(*Register(5, first_));
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
    const auto consumer =
            ndk::SharedRefBase::make<RecordingConsumer>(first_, "consumer", reentrant);
    first = velmora_test::Subscribe(consumers_, 5, consumer);
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
