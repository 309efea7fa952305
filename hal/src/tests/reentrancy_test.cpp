// Labels: memory threads
// Clients in the hub's own process that call the hub while it calls, or releases, them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>
#include <utility>

#include "host_testing.h"
#include "hub_parts.h"

namespace velmora_test {
namespace {

using ::host::testing::LogCapture;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Token = std::shared_ptr<hub::IToken>;

// Calls `end` when its last copy goes: in a client's hook, at the end of the client.
std::shared_ptr<void> AtEnd(std::function<void()> end) {
    return {nullptr, [end](void*) { end(); }};
}

// A hub with clients that call `action`, once, when it is there: `own` (signals 5 and 9) and
// `busy` (5) from their callbacks, the two leaving ones (20 and 21) from their destructors. The hub
// has the only references to the leaving ones, which end what they have from inside any callback.
struct World {
    World() {
        source6 = Register(*hub.producers, MakeDescriptor(6), source);
        source20 = Register(*hub.producers, MakeDescriptor(20), source);
        own5 = Subscribe(*hub.consumers, 5, own);
        other6 = Subscribe(*hub.consumers, 6, other);
        other21 = Subscribe(*hub.consumers, 21, other);
        Subscribe(*hub.consumers, 9, own);
        busy5 = Register(*hub.producers, MakeDescriptor(5), busy);
        hub.Fence();  // the leaving ones hear nothing of this
        leaving20 = Subscribe(
                *hub.consumers, 20,
                MakeConsumer(record, "leaving", [this, end = AtEnd([this] { Act(); })](auto&) {
                    hub.consumers->unsubscribe(leaving20);
                }));
        leaving21 = Register(
                *hub.producers, MakeDescriptor(21),
                MakeProducer(record, "leaving", [this, end = AtEnd([this] { Act(); })](auto&) {
                    hub.producers->unregisterProducer(leaving21);
                }));
        hub.Fence();
    }

    void Act() {
        if (!armed.exchange(false)) return;
        action(*this);
        acted.set_value();
    }

    const LogCapture log;
    const std::shared_ptr<Record> record = std::make_shared<Record>();
    std::atomic<bool> armed{false};
    std::function<void(World&)> action;
    std::promise<void> acted;
    Token source6, source20, own5, other6, other21, busy5, leaving20, leaving21;
    const RecordingConsumer::Hook act = [this](auto&) { Act(); };
    const std::shared_ptr<RecordingConsumer> own = MakeConsumer(record, "own", act),
                                             other = MakeConsumer(record, "other");
    const std::shared_ptr<RecordingProducer> busy = MakeProducer(record, "busy", act),
                                             source = MakeProducer(record, "source");
    const Hub hub;
    hub::VelmoraHubProducerManager& producers = *hub.producers;
    hub::VelmoraHubConsumerManager& consumers = *hub.consumers;
};

struct Place {
    const char* name;
    void (*reach)(World& world);
};

const Place kPlaces[] = {
        {"onSignalAvailable", [](World& w) { Register(w.producers, MakeDescriptor(9), w.source); }},
        {"onSignalUpdate", [](World& w) { w.producers.updateSignal(w.busy5, MakeEvent(5)); }},
        {"onSignalUnavailable", [](World& w) { w.producers.unregisterProducer(w.busy5); }},
        {"onClientsUpdated", [](World& w) { w.consumers.unsubscribe(w.own5); }},
        {"nudge", [](World& w) { w.consumers.requestSignalUpdate(w.own5); }},
        {"consumer released by unsubscribe",
         [](World& w) { w.consumers.unsubscribe(w.leaving20); }},
        {"consumer released by its death",
         [](World& w) { w.consumers.HandleBinderDeath(w.leaving20); }},
        {"consumer released by the end of a dispatch",
         [](World& w) { w.producers.updateSignal(w.source20, MakeEvent(20)); }},
        {"producer released by unregisterProducer",
         [](World& w) { w.producers.unregisterProducer(w.leaving21); }},
        {"producer released by its death",
         [](World& w) { w.producers.HandleBinderDeath(w.leaving21); }},
        {"producer released by the end of its callback",
         [](World& w) { w.consumers.requestSignalUpdate(w.other21); }},
};

// What a call does, and afterwards: a line that a client has written, and a piece of a dump that is
// there or, after a '!', is not there.
struct Deed {
    const char* name;
    void (*run)(World& world);
    const char* line;
    const char* piece;
};

void ExpectOk(const ::ndk::ScopedAStatus& status) {
    EXPECT_TRUE(status.isOk()) << status.getDescription();
}

const Deed kDeeds[] = {
        {"subscribe", [](World& w) { EXPECT_NE(Subscribe(w.consumers, 30, w.own), nullptr); },
         nullptr, "ID: 30\n    Consumer"},
        {"unsubscribe own", [](World& w) { ExpectOk(w.consumers.unsubscribe(w.own5)); }, nullptr,
         "!Consumer Token ID: 1\n"},
        {"unsubscribe another", [](World& w) { ExpectOk(w.consumers.unsubscribe(w.other6)); },
         "source: no clients", "!Consumer Token ID: 2\n"},
        {"requestSignalUpdate",
         [](World& w) { ExpectOk(w.consumers.requestSignalUpdate(w.other6)); }, "source: nudge",
         ""},
        {"registerProducer",
         [](World& w) { EXPECT_NE(Register(w.producers, MakeDescriptor(31), w.busy), nullptr); },
         nullptr, "ID: 31\n    Producer"},
        {"updateSignal",
         [](World& w) { ExpectOk(w.producers.updateSignal(w.source6, MakeEvent(6, 1))); },
         "other: update 6 @1", ""},
        {"unregisterProducer",
         [](World& w) { ExpectOk(w.producers.unregisterProducer(w.source6)); },
         "other: unavailable 6 UNREGISTERED", "!Producer Token ID: 1\n"},
        {"producers' dump",
         [](World& w) { EXPECT_THAT(DumpOf(w.producers), HasSubstr("  Signal ID: 6\n")); }, nullptr,
         ""},
        {"consumers' dump",
         [](World& w) { EXPECT_THAT(DumpOf(w.consumers), HasSubstr("  Signal ID: 6\n")); }, nullptr,
         ""},
};

TEST(Reentrancy, IsAllowedFromEveryCallbackAndDestructorIntoEveryMethod) {
    for (const Place& place : kPlaces) {
        for (const Deed& deed : kDeeds) {
            SCOPED_TRACE(std::string(deed.name) + " from " + place.name);
            World world;
            world.action = deed.run;
            world.armed = true;
            std::thread caller([&] { place.reach(world); });
            // A caller that hangs ends the program, as does the thread that it leaves.
            ASSERT_EQ(world.acted.get_future().wait_for(host::testing::kTestLimit),
                      std::future_status::ready);
            caller.join();
            world.hub.Fence();
            if (deed.line != nullptr) {
                EXPECT_THAT(world.record->lines(), Contains(deed.line));
            }
            const std::string dumps = DumpOf(*world.hub.producers) + DumpOf(*world.hub.consumers);
            const bool gone = deed.piece[0] == '!';
            EXPECT_EQ(dumps.find(deed.piece + gone) == std::string::npos, gone) << dumps;
        }
    }
}

TEST(Reentrancy, OfADispatchCountsFromTheNextDispatchOn) {
    const LogCapture log;
    const auto record = std::make_shared<Record>();
    const Hub hub;
    Token tokens[2];
    bool acted = false;
    const auto newcomer = MakeConsumer(record);
    for (int i = 0; i < 2; ++i) {
        auto hook = [&, i, end = AtEnd([&] { record->Add("released"); })](auto&) {
            if (std::exchange(acted, true)) return;
            ExpectOk(hub.consumers->unsubscribe(tokens[1 - i]));
            EXPECT_EQ(log.Texts("Removing subscription: 5::").size(), 1U) << "ended too late";
            EXPECT_NE(Subscribe(*hub.consumers, 5, newcomer), nullptr);
            record->Add("one out, one in");
        };
        tokens[i] = Subscribe(*hub.consumers, 5, MakeConsumer(record, "consumer", std::move(hook)));
    }
    hub.consumers->DispatchSignalUpdate(5, MakeEvent(5, 1));
    hub.consumers->DispatchSignalUpdate(5, MakeEvent(5, 2));
    EXPECT_THAT(record->lines(),
                ElementsAre("consumer: update 5 @1", "one out, one in", "consumer: update 5 @1",
                            "released", "consumer: update 5 @2", "consumer: update 5 @2"));
}

}  // namespace
}  // namespace velmora_test
