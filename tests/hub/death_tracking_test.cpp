// Labels: memory threads processes
// What becomes of tokens, handlers and links when the process at the other end dies, or does not.

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>

#include "binder_death_manager.h"
#include "hub_processes.h"
#include "test_object.h"

namespace velmora_test {
namespace {

using host::testing::Letter;
using host::testing::RemoteObject;
using hub::BinderDeathManager;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using Recipient = ndk::ScopedAIBinder_DeathRecipient;
using Token = std::shared_ptr<hub::IToken>;

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new HubHost);

binder_status_t Answer(int, const Letter&, Letter*) {
    return STATUS_OK;
}

HOST_HELPER(Remote) {
    return Serve(channel, Answer);
}

Token MakeToken(int32_t token_id) {
    return ndk::SharedRefBase::make<hub::ProducerToken>(1, token_id);
}

// How many links hold the token, which one variable of the test's holds too.
long LinksOf(const Token& token) {
    return token.use_count() - 1;
}

bool HasLinks(const Token& token, long count) {
    return Eventually([&] { return LinksOf(token) == count; });
}

// Writes down the numbers of the tokens.
struct Handler : hub::DeathHandler {
    void HandleBinderDeath(const Token& token) override {
        if (hook) hook();
        record.Add(std::to_string(hub::ProducerToken::From(token)->token_id));
    }
    Recipient Track(const ndk::SpAIBinder& binder, const Token& token) {
        return Recipient(BinderDeathManager::TrackDeath(binder.get(), token, this));
    }

    std::function<void()> hook;
    Record record;
};

TEST(DeathTracking, TellsTheTokensOfABinderApartAndReleasesEach) {
    RemoteObject victim("Remote");
    Handler handler;
    const Token tokens[] = {MakeToken(0), MakeToken(1), MakeToken(2)};
    std::vector<Recipient> recipients;
    for (const Token& token : tokens)
        recipients.push_back(handler.Track(victim.object(), token));
    recipients[0].set(nullptr);
    EXPECT_EQ(LinksOf(tokens[0]), 0) << "its link ended while the binder lived";
    EXPECT_EQ(LinksOf(tokens[1]), 1);
    victim.process().Kill();
    EXPECT_TRUE(HasLinks(tokens[1], 0) && HasLinks(tokens[2], 0));
    EXPECT_THAT(handler.record.lines(), UnorderedElementsAre("1", "2"));
}

TEST(DeathTracking, KeepsTheTokenOfARefusedLinkUntilItIsTrackedAgain) {
    RemoteObject dead("Remote"), living("Remote");
    dead.process().Kill();
    ASSERT_TRUE(Eventually([&] { return !AIBinder_isAlive(dead.object().get()); }));
    for (const auto& binder : {dead.object(), host::testing::MakeObject(Answer)}) {
        Handler handler;
        const Token token = MakeToken(1);
        const LogCapture log;
        Recipient refused = handler.Track(binder, token);
        EXPECT_NE(refused.get(), nullptr);
        EXPECT_THAT(Lines(log), ElementsAre("velmora_hal W print Cannot listen to binder death for "
                                            "this client."));
        refused.set(nullptr);
        EXPECT_EQ(LinksOf(token), 1);
        Recipient again = handler.Track(living.object(), token);
        EXPECT_EQ(LinksOf(token), 1);
        again.set(nullptr);
        EXPECT_EQ(LinksOf(token), 0);
        EXPECT_THAT(handler.record.lines(), IsEmpty());
    }
}

TEST(DeathTracking, KeepsTheTokenForAHandlerThatEndsItsLinkAndDropsTheToken) {
    RemoteObject victim("Remote");
    Handler handler;
    Token token = MakeToken(1);
    const std::weak_ptr<hub::IToken> observer = token;
    Recipient recipient = handler.Track(victim.object(), token);
    handler.hook = [&] {
        recipient.set(nullptr);
        token = nullptr;
    };
    victim.process().Kill();
    EXPECT_THAT(handler.record.WaitFor(1), ElementsAre("1"));
    EXPECT_TRUE(Eventually([&] { return observer.expired(); }));
    // Nor does the handling need the cookie.
    auto cookie = std::make_unique<hub::DeathCookie>();
    cookie->handler = &handler;
    cookie->token = MakeToken(2);
    handler.hook = [&] { cookie = nullptr; };
    BinderDeathManager::OnBinderDied(cookie.get());
    EXPECT_THAT(handler.record.lines(), ElementsAre("1", "2"));
}

TEST(DeathTracking, LetsATokensNewLinkOutliveTheUnlinkingOfTheOlder) {
    RemoteObject older("Remote"), newer("Remote");
    Handler handler;
    const Token token = MakeToken(1);
    const Recipient first = handler.Track(older.object(), token);
    Recipient second;
    {
        const host::testing::HeldUnlinks held;
        older.process().Kill();
        ASSERT_TRUE(held.WaitForHeld(1));
        second = handler.Track(newer.object(), token);
        EXPECT_EQ(LinksOf(token), 2);
    }
    EXPECT_TRUE(HasLinks(token, 1));
    newer.process().Kill();
    EXPECT_TRUE(HasLinks(token, 0));
    EXPECT_THAT(handler.record.lines(), ElementsAre("1", "1"));
}

// Each link by its binder's death or by deletion, in both orders.
TEST(DeathTracking, LetsTwoLinksOfOneTokenEndEachItsOwnWay) {
    for (unsigned ways = 0; ways < 8; ++ways) {
        SCOPED_TRACE(ways);
        RemoteObject remotes[] = {RemoteObject("Remote"), RemoteObject("Remote")};
        Handler handler;
        const Token token = MakeToken(1);
        Recipient recipients[] = {handler.Track(remotes[0].object(), token),
                                  handler.Track(remotes[1].object(), token)};
        const unsigned first = ways >> 2;
        size_t deaths = 0;
        for (const unsigned link : {first, 1 - first}) {
            if (((ways >> link) & 1) == 0) {
                recipients[link].set(nullptr);
            } else {
                remotes[link].process().Kill();
                ++deaths;
            }
            EXPECT_TRUE(HasLinks(token, link == first ? 1 : 0));
            EXPECT_EQ(handler.record.lines().size(), deaths);
        }
    }
}

TEST(DeathTracking, LosesNoTokenWhenThreadsTrackAndEndLinksWhileTheBinderDies) {
    constexpr int kThreads = 4, kRounds = host::testing::Rounds(500, 100);
    RemoteObject victim("Remote"), living("Remote");
    Handler handler;
    const LogCapture log;
    Token tokens[kThreads + 1];
    for (Token& token : tokens)
        token = MakeToken(1);
    std::atomic<int> threads{0}, rounds{0};
    host::testing::InParallel(kThreads, [&] {
        const int thread = threads++;
        for (int i = 0; i < kRounds; ++i) {
            const Recipient own = handler.Track(victim.object(), tokens[thread]);
            const Recipient shared = handler.Track(victim.object(), tokens[kThreads]);
            if (++rounds == kThreads * kRounds / 2) kill(victim.pid(), SIGKILL);
        }
    });
    for (const Token& token : tokens) {
        // In place of what a refused link has left.
        handler.Track(living.object(), token).set(nullptr);
        EXPECT_TRUE(HasLinks(token, 0)) << LinksOf(token);
    }
}

// Ends its links when this process's statics are destroyed.
struct StaticOwner {
    ~StaticOwner() {
        recipient.set(nullptr);
        if (token != nullptr && !HasLinks(token, 0)) _exit(7);
    }
    // Never destroyed: a callback that has begun may end later.
    Handler& handler = *new Handler;
    Token token;
    Recipient recipient;
} g_owner;

HOST_HELPER(Owner) {
    ABinderProcess_startThreadPool();
    const ndk::SpAIBinder remote(AServiceManager_waitForService(channel.arguments()[0].c_str()));
    g_owner.token = MakeToken(1);
    g_owner.recipient = g_owner.handler.Track(remote, g_owner.token);
    channel.Serve([](const std::string& command) { return command; });
    return 0;
}

TEST(DeathTracking, LetsLinksEndDuringStaticDestruction) {
    for (const bool dies : {false, true, true, true}) {
        RemoteObject remote("Remote");
        Helper owner("Owner", {remote.name()});
        ASSERT_EQ(owner.Command("linked"), "linked");
        if (dies) remote.process().Signal(SIGKILL);
        EXPECT_EQ(owner.Finish(), (ExitStatus{0, 0}));
    }
}

}  // namespace
}  // namespace velmora_test
