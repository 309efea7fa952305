// Labels: memory threads
// What every call of the two managers answers, logs and queues. What is queued is not run.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <utility>

#include "host_testing.h"
#include "hub_parts.h"

namespace velmora_test {
namespace {

using ::aidl::android::hardware::biometrics::Callable;
using ::host::testing::LogCapture;
using ::ndk::ScopedAStatus;
using Token = std::shared_ptr<hub::IToken>;

constexpr char kLocalLink[] = "W Cannot listen to binder death for this client.";
constexpr char kNoProducer[] = "W Invalid producer attached to registration. Will not notify.";
constexpr char kRequested[] = "I requestSignalUpdate invoked. Not implemented yet!";
constexpr char kTokenGiven[] = "E Repurposing a token is not supported.";
constexpr char kBadToken[] = "E Invalid token.";

// Counts what it is given by one thread.
class CountingWorker : public WorkerThread {
  public:
    CountingWorker() : WorkerThread(100) {}
    bool schedule(std::unique_ptr<Callable>) override {
        ++count;
        return true;
    }
    int count = 0;
};

class ManagerAnswers : public ::testing::Test {
  protected:
    // What the call that was made since the last check has answered, queued and logged.
    void Check(const char* what, const ScopedAStatus& status, const std::string& answer, int tasks,
               const Strings& lines) {
        SCOPED_TRACE(what);
        EXPECT_EQ(Answer(status), answer);
        EXPECT_EQ(std::exchange(worker_->count, 0), tasks);
        Strings logged;
        for (const std::string& line : lines)
            logged.push_back("velmora_hal " + line.substr(0, 1) + " print" + line.substr(1));
        EXPECT_EQ(Lines(log_), logged);
        log_.Clear();
    }

    ScopedAStatus Add(int32_t signal_id, Token* out) {
        return producers_->registerProducer(MakeDescriptor(signal_id), producer_, out);
    }
    // For calls that answer nothing.
    static ScopedAStatus Die(hub::DeathHandler& manager, const Token& token) {
        manager.HandleBinderDeath(token);
        return ScopedAStatus::ok();
    }

    const std::shared_ptr<CountingWorker> worker_ = std::make_shared<CountingWorker>();
    const std::shared_ptr<hub::VelmoraHubProducerManager> producers_ =
            ndk::SharedRefBase::make<hub::VelmoraHubProducerManager>(worker_);
    const std::shared_ptr<hub::VelmoraHubConsumerManager> consumers_ =
            ndk::SharedRefBase::make<hub::VelmoraHubConsumerManager>(worker_);
    const std::shared_ptr<Record> record_ = std::make_shared<Record>();
    const std::shared_ptr<RecordingProducer> producer_ = MakeProducer(record_);
    LogCapture log_;
};

TEST_F(ManagerAnswers, OfTheProducerSideAreAsDefined) {
    const hub::VelmoraEvent event = MakeEvent(5);
    char queued[64];
    std::snprintf(queued, sizeof(queued), "I schedule update: %p",
                  static_cast<const void*>(&event));
    const Strings added = {kLocalLink, "I addSignal invoked"};
    const Strings unknown = {"W Unknown signal cannot be removed."};
    const Strings removed = {"I Removed signal p:1 s:5"};
    const std::string bad_token = "-3 Invalid token.";
    const auto update = [&](const Token& token) { return producers_->updateSignal(token, event); };
    const auto remove = [&](const Token& token) { return producers_->unregisterProducer(token); };
    Token first;
    Token refused;
    Token second;
    Check("registration", Add(5, &first), "OK", 1, added);
    Check("token given, id taken", Add(5, &first), bad_token, 0, {kTokenGiven});
    Check("id taken", Add(5, &refused), "-5 Signal already registered.", 0,
          {"W Signal already registered. Request denied."});
    Check("update", update(first), "OK", 1, {queued});
    for (const Token& token : {Token(), Token(ndk::SharedRefBase::make<hub::ConsumerToken>(5, 1)),
                               Token(ndk::SharedRefBase::make<TestToken>())}) {
        Check("foreign update", update(token), bad_token, 0, {kBadToken});
        Check("foreign removal", remove(token), bad_token, 0, {kBadToken});
        Check("foreign death", Die(*producers_, token), "OK", 0,
              {kBadToken, "W Producer died and failed to unsubscribe."});
    }
    Check("removal", remove(first), "OK", 1, removed);
    Check("removal once more", remove(first), "OK", 1, unknown);
    Check("update afterwards", update(first), "OK", 1, {queued});
    Check("registration anew", Add(5, &second), "OK", 1, added);
    Check("removal of the new one with the old token", remove(first), "OK", 1, removed);
    Check("extreme id", Add(INT32_MIN, &refused), "OK", 1, added);
    Check("death", Die(*producers_, refused), "OK", 1, {"I Removed signal p:3 s:-2147483648"});
    Check("death afterwards", Die(*producers_, second), "OK", 1, unknown);
    producers_->RequestSignalUpdate(5);
    Check("request of an unknown id", ScopedAStatus::ok(), "OK", 0, {kNoProducer});
    producers_->UpdateSubscriptionState(5, true);
    Check("clients of an unknown id", ScopedAStatus::ok(), "OK", 0, {kNoProducer});
    EXPECT_EQ(record_->lines(), Strings()) << "told a producer";
}

TEST_F(ManagerAnswers, OfTheConsumerSideAreAsDefined) {
    const auto one = MakeConsumer(record_);
    const auto two = MakeConsumer(record_);
    const std::string bad_state = "-3 Invalid token state.";
    const auto request = [&](const Token& token) { return consumers_->requestSignalUpdate(token); };
    const auto remove = [&](const Token& token) { return consumers_->unsubscribe(token); };
    Token first;
    Token refused;
    Token second;
    Token third;
    Check("first consumer", consumers_->subscribe(5, one, &first), "OK", 1,
          {kLocalLink, "I New subscriber (5::1)"});
    Check("token given", consumers_->subscribe(6, one, &first), bad_state, 0, {kTokenGiven});
    Check("same signal", consumers_->subscribe(5, one, &refused), "-3 Already subscribed", 0, {});
    Check("second consumer", consumers_->subscribe(5, two, &second), "OK", 0,
          {kLocalLink, "I New subscriber (5::2)"});
    Check("extreme id", consumers_->subscribe(INT32_MAX, one, &third), "OK", 1,
          {kLocalLink, "I New subscriber (2147483647::3)"});
    Check("request", request(first), "OK", 1, {kRequested});
    for (const Token& token : {Token(), Token(ndk::SharedRefBase::make<hub::ProducerToken>(5, 1)),
                               Token(ndk::SharedRefBase::make<TestToken>())}) {
        Check("foreign request", request(token), bad_state, 0, {kRequested, kBadToken});
        Check("foreign removal", remove(token), bad_state, 0, {kBadToken});
        Check("foreign death", Die(*consumers_, token), "OK", 0,
              {kBadToken, "W Client died but failed to unsubscribe."});
    }
    Check("removal, one stays", remove(first), "OK", 0,
          {"I Unsubscribing s[5]-t[1]", "I Removing subscription: 5::1"});
    Check("removal once more", remove(first), "OK", 0,
          {"I Unsubscribing s[5]-t[1]", "W Registration did not exist."});
    Check("request afterwards", request(first), "OK", 1, {kRequested});
    Check("death of the last", Die(*consumers_, second), "OK", 1,
          {"I Unsubscribing s[5]-t[2]", "I Removing subscription: 5::2"});
    Check("signal never named", remove(ndk::SharedRefBase::make<hub::ConsumerToken>(-7, 1)), "OK",
          0, {"I Unsubscribing s[-7]-t[1]", "D Registration does not exist. No signal found."});
    Check("first consumer again", consumers_->subscribe(5, two, &refused), "OK", 1,
          {kLocalLink, "I New subscriber (5::4)"});
    EXPECT_EQ(record_->lines(), Strings()) << "told a consumer";
}

}  // namespace
}  // namespace velmora_test
