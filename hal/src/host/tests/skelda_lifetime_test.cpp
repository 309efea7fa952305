// Labels: memory threads processes
// How the touch producer ends. Its service is one of this process that shows the binder of another
// process's object as its own: so its calls are scripted while its death is a real one.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <thread>

#include "host_parts.h"
#include "test_object.h"

namespace velmora_test {
namespace {

using namespace std::chrono_literals;
using host::testing::Eventually;
using host::testing::HeldUnlinks;
using host::testing::RemoteObject;
using ::testing::ElementsAre;

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new HubHost);

HOST_HELPER(Mortal) {
    return host::testing::Serve(channel,
                                [](int, const auto&, auto*) { return binder_status_t{STATUS_OK}; });
}

class SkeldaLifetime : public ::testing::Test {
  protected:
    ~SkeldaLifetime() override {
        if (producer != nullptr) producer->OnStop();
    }

    void Start(FakeTouchService::Script script = {},
               std::chrono::steady_clock::duration interval = 1h) {
        service = ::ndk::SharedRefBase::make<FakeTouchService>(record, std::move(script));
        service->as_binder = [this] { return mortal.object(); };
        service->Publish();
        producer = ::ndk::SharedRefBase::make<SkeldaProducer>(interval);
        observer = producer;
        producer->OnStart(manager);
    }

    // True when nobody but the test holds the producer: its thread waits.
    bool WaitForRest() {
        return Eventually([this] { return observer.use_count() == 1; });
    }

    // True when it has registered its listeners and waits.
    bool StartsListening() {
        Start();
        return record->WaitFor(4).size() == 4 && WaitForRest();
    }

    // Drops the test's reference on another thread; `gone` when that has returned.
    std::thread Drop(std::atomic<bool>* gone) {
        return std::thread([this, gone] {
            producer.reset();
            *gone = true;
        });
    }

    // How often the object of the other process is referenced here: by the test, and by each link.
    int References() { return AIBinder_debugGetRefCount(mortal.object().get()); }

    RemoteObject mortal{"Mortal"};
    const std::shared_ptr<Record> record = std::make_shared<Record>();
    const std::shared_ptr<FakeManager> manager = ::ndk::SharedRefBase::make<FakeManager>(record);
    std::shared_ptr<FakeTouchService> service;
    std::shared_ptr<SkeldaProducer> producer;
    std::weak_ptr<SkeldaProducer> observer;
};

TEST_F(SkeldaLifetime, EndsItsLinkBeforeItGoesAndHoldsNoMutexMeanwhile) {
    ASSERT_TRUE(StartsListening());
    EXPECT_GT(References(), 1);
    hub::DeathHandler* const handler = producer.get();
    std::atomic<bool> gone{false};
    std::thread dropper;
    {
        const HeldUnlinks held;
        dropper = Drop(&gone);
        ASSERT_TRUE(held.WaitForHeld(1));
        handler->HandleBinderDeath(nullptr);
        EXPECT_FALSE(gone);
    }
    dropper.join();
    EXPECT_TRUE(observer.expired());
    EXPECT_TRUE(Eventually([this] { return References() == 1; }));
}

TEST_F(SkeldaLifetime, WaitsForADeathCallbackThatHasBegun) {
    ASSERT_TRUE(StartsListening());
    std::atomic<bool> gone{false};
    std::thread dropper;
    {
        const HeldUnlinks held;
        mortal.process().Kill();
        ASSERT_TRUE(held.WaitForHeld(1));
        // The death is told: the next lookup finds the service again, with a binder that is dead.
        record->WaitFor(7);
        ASSERT_TRUE(WaitForRest());
        dropper = Drop(&gone);
        // Stopped, and yet not gone.
        EXPECT_EQ(record->WaitFor(10).size(), 10u);
        EXPECT_FALSE(Eventually([&] { return gone.load(); }, 50ms));
    }
    dropper.join();
    EXPECT_TRUE(Eventually([&] { return References() == 1; }));
}

TEST_F(SkeldaLifetime, LooksAgainForAServiceThatWasDeadBeforeItWasLinkedTo) {
    LogCapture log;
    mortal.process().Kill();
    ASSERT_TRUE(Eventually([this] { return !AIBinder_isAlive(mortal.object().get()); }));
    Start(
            [](const std::string&, int pass) {
                return pass == 1 ? ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT)
                                 : ScopedAStatus::ok();
            },
            10ms);
    EXPECT_EQ(record->WaitFor(5).size(), 5u);
    EXPECT_EQ(log.Texts("waiting for service...").size(), 2u);
    EXPECT_EQ(log.Texts("service died").size(), 0u);
}

TEST_F(SkeldaLifetime, TellsAlsoOfADeathThatAPassNoticedFirst) {
    LogCapture log;
    // A link in front of the producer's: its unlink callback keeps the producer's notice waiting.
    const ::ndk::ScopedAIBinder_DeathRecipient first(AIBinder_DeathRecipient_new([](void*) {}));
    ASSERT_EQ(AIBinder_linkToDeath(mortal.object().get(), first.get(), nullptr), STATUS_OK);
    {
        const HeldUnlinks held;
        Start([&](const std::string&, int) {
            mortal.process().Signal(SIGKILL);
            EXPECT_TRUE(held.WaitForHeld(1));
            return ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
        });
        EXPECT_TRUE(log.WaitForText("Failed to get panel info"));
        EXPECT_TRUE(WaitForRest());
        EXPECT_EQ(log.Texts("service died").size(), 0u);
    }
    EXPECT_TRUE(log.WaitForText("service died"));
}

TEST_F(SkeldaLifetime, MayEndOnItsOwnThread) {
    // Let go by the service, and by the hub when the service calls a listener on that thread.
    for (const bool inside_listener : {false, true}) {
        host::testing::Counter ready;
        record->Clear();
        manager->on_update = [this] { producer.reset(); };
        Start([&, this](const std::string& line, int) {
            if (line == "register 0 7 #1" && ready.WaitFor(1)) {
                if (!inside_listener) producer.reset();
                service->listener(0)->onNotificationReceived(Notification(""));
            }
            return ScopedAStatus::ok();
        });
        producer->onClientsUpdated(inside_listener);
        ready.Add();
        EXPECT_THAT(record->WaitFor(7),
                    ElementsAre("hub: register 2", "panels", "register 1 7 #0", "register 0 7 #1",
                                "hub: unregister", "unregister 0 #1", "unregister 1 #0"));
        EXPECT_TRUE(Eventually([&] { return observer.expired() && References() == 1; }));
    }
}

TEST_F(SkeldaLifetime, MayEndInsideAListenersCall) {
    ASSERT_TRUE(StartsListening());
    producer->onClientsUpdated(true);
    manager->on_update = [this] {
        producer.reset();
        EXPECT_FALSE(observer.expired());
    };
    service->listener(0)->onNotificationReceived(Notification(""));
    EXPECT_TRUE(observer.expired());
    EXPECT_EQ(record->lines().back(), "unregister 1 #0");
}

TEST_F(SkeldaLifetime, MayEndOnTheThreadThatTellsOfTheDeath) {
    Start([](const std::string&, int) { return Failure("busy"); });
    record->WaitFor(2);
    ASSERT_TRUE(WaitForRest());
    // The producer is left with the only reference to the service, and the service with the only
    // one to the producer: the death lets go of the one, which lets go of the other.
    ::ndk::SharedRefBase::make<FakeTouchService>(record)->Publish();
    const std::weak_ptr<FakeTouchService> last = service;
    service->on_destroy = [let_go = std::move(producer)]() mutable { let_go.reset(); };
    service.reset();
    ASSERT_TRUE(Eventually([&] { return last.use_count() == 1; }));
    mortal.process().Kill();
    EXPECT_TRUE(Eventually([&] { return observer.expired() && References() == 1; }));
    EXPECT_EQ(record->lines().back(), "hub: unregister");
}

}  // namespace
}  // namespace velmora_test
