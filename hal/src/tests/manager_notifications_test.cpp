// Labels: memory threads
// What the managers tell their listener, on which thread, and in which order.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <future>

#include "host_testing.h"
#include "hub_parts.h"
#include "worker/callable.h"

namespace velmora_test {
namespace {

using ::aidl::android::hardware::biometrics::Callable;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

// Keeps the worker in a task while it lives.
class HeldWorker {
  public:
    explicit HeldWorker(WorkerThread& worker) : worker_(worker) {
        std::promise<void> inside;
        worker.schedule(Callable::wrap([&] {
            inside.set_value();
            released_.get_future().wait();
        }));
        inside.get_future().wait();
    }
    // Returns when everything that was queued has run.
    ~HeldWorker() {
        released_.set_value();
        Fence(worker_);
    }

  private:
    WorkerThread& worker_;
    std::promise<void> released_;
};

// Writes down what it is told, and what is wrong about the thread.
class RecordingListener : public hub::ProducerManagerListener, public hub::ConsumerManagerListener {
  public:
    RecordingListener(std::shared_ptr<Record> record, pid_t worker)
            : record_(std::move(record)), worker_(worker) {}

    void OnSignalAdded(int id) override { Add("added " + std::to_string(id)); }
    void OnSignalRemoved(int id, hub::SignalRemovedCause cause) override {
        Add("removed " + std::to_string(id) + " " + std::to_string(static_cast<int>(cause)));
    }
    void OnSignalUpdated(int id, const hub::VelmoraEvent& event) override {
        Add("updated " + std::to_string(id));
        ndk::SharedRefBase::make<RecordingConsumer>(record_, "event")->onSignalUpdate(event);
    }
    void OnSignalUpdateRequested(int id) override { Add("requested " + std::to_string(id)); }
    void OnConsumerSubscriptionChanged(int id, bool has_consumers) override {
        Add((has_consumers ? "first " : "last ") + std::to_string(id));
    }

  private:
    void Add(const std::string& line) {
        record_->Add(gettid() == worker_ ? line : line + " on another thread");
    }

    const std::shared_ptr<Record> record_;
    const pid_t worker_;
};

class Notifications : public ::testing::Test {
  protected:
    Notifications() {
        std::promise<pid_t> worker;
        hub_.worker->schedule(Callable::wrap([&] { worker.set_value(gettid()); }));
        const auto listener =
                std::make_shared<RecordingListener>(record_, worker.get_future().get());
        hub_.producers->RegisterListener(listener);
        hub_.consumers->RegisterListener(listener);
    }

    std::shared_ptr<hub::IToken> Add(int32_t signal_id) {
        return Register(*hub_.producers, MakeDescriptor(signal_id), producer_);
    }
    std::shared_ptr<hub::IToken> Join(int32_t signal_id) {
        return Subscribe(*hub_.consumers, signal_id,
                         ndk::SharedRefBase::make<RecordingConsumer>(record_));
    }
    void Push(const std::shared_ptr<hub::IToken>& token, const hub::VelmoraEvent& event) {
        EXPECT_TRUE(hub_.producers->updateSignal(token, event).isOk());
    }

    const ::host::testing::LogCapture log_;
    const std::shared_ptr<Record> record_ = std::make_shared<Record>();
    const std::shared_ptr<RecordingProducer> producer_ =
            ndk::SharedRefBase::make<RecordingProducer>(record_);
    const Hub hub_;
};

TEST_F(Notifications, ComeInTheOrderOfTheChangesOnTheWorker) {
    {
        const HeldWorker held(*hub_.worker);
        const auto token = Add(5);
        hub::VelmoraEvent event = MakeEvent(-9, 1, "named otherwise");
        Push(token, event);
        event = MakeEvent(5, 9, "changed after it was pushed");
        EXPECT_TRUE(hub_.producers->unregisterProducer(token).isOk());
        Push(token, MakeEvent(5, 2));
        hub_.producers->HandleBinderDeath(token);
        const auto again = Add(5);
        Push(token, MakeEvent(5, 3));
        EXPECT_EQ(record_->lines(), std::vector<std::string>()) << "not from the worker";
    }
    EXPECT_THAT(record_->lines(),
                ElementsAre("added 5", "updated 5", "event: update -9 @1 named otherwise",
                            "removed 5 3", "updated 5", "event: update 5 @2", "removed 5 3",
                            "added 5", "updated 5", "event: update 5 @3"));
}

TEST_F(Notifications, TellOfTheFirstAndTheLastConsumerOnly) {
    const auto one = Join(5);
    const auto two = Join(5);
    const auto other = Join(-6);
    EXPECT_TRUE(hub_.consumers->unsubscribe(one).isOk());
    EXPECT_TRUE(hub_.consumers->requestSignalUpdate(one).isOk());
    hub_.consumers->HandleBinderDeath(two);
    hub_.consumers->HandleBinderDeath(two);
    const auto three = Join(5);
    hub_.Fence();
    EXPECT_THAT(record_->lines(),
                ElementsAre("first 5", "first -6", "requested 5", "last 5", "first 5"));
}

TEST_F(Notifications, BeyondTheQueuesBoundAreLostAndNothingElseIs) {
    const auto token = Add(5);
    const auto first = Join(5);
    hub_.Fence();
    record_->Clear();
    {
        const HeldWorker held(*hub_.worker);
        const long before = token.use_count();
        for (int i = 0; i < 100; ++i)
            Push(token, MakeEvent(5, i));
        EXPECT_EQ(token.use_count(), before + 100);
        Push(token, MakeEvent(5, 100));
        EXPECT_EQ(token.use_count(), before + 100) << "a refused task still holds its token";
        EXPECT_TRUE(hub_.consumers->requestSignalUpdate(first).isOk());
        EXPECT_TRUE(hub_.consumers->unsubscribe(first).isOk());
        EXPECT_NE(Join(6), nullptr);
        EXPECT_NE(Add(7), nullptr);
        EXPECT_TRUE(hub_.producers->unregisterProducer(token).isOk());
    }
    EXPECT_EQ(token.use_count(), 2) << "held by more than the test and the refused death link";
    std::vector<std::string> expected;
    for (int i = 0; i < 100; ++i) {
        expected.push_back("updated 5");
        expected.push_back("event: update 5 @" + std::to_string(i));
    }
    EXPECT_EQ(record_->lines(), expected);
    EXPECT_THAT(DumpOf(*hub_.producers), AllOf(HasSubstr("ID: 7"), Not(HasSubstr("ID: 5"))));
    EXPECT_THAT(DumpOf(*hub_.consumers),
                AllOf(HasSubstr("Consumer Token ID: 2"), Not(HasSubstr("Consumer Token ID: 1"))));
}

}  // namespace
}  // namespace velmora_test
