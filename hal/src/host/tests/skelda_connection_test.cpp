// Labels: memory threads
// The touch producer's road to its service, against a fake one of this process. The platform
// refuses links to local binders, so each lookup has the hub's warning, and deaths are told by
// hand.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "host_parts.h"

namespace velmora_test {
namespace {

using namespace std::chrono_literals;
using host::testing::Eventually;
using ::testing::ElementsAre;
using ::testing::IsSupersetOf;

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new HubHost);

const char kDeclared[] = "D print skelda: service declared, waiting for service...";
const std::string kTrying = "I print skelda: Attempting to register listener for Panel ID: ";
const std::string kDone = "I print skelda: Successfully registered listener for Panel ID: ";
const std::string kFailed = "E print skelda: Failed to register listener for Panel ID: ";
const std::string kNoPanels = "E print skelda: Failed to get panel info: ";

// The calls of a pass over panels 1 and 0, and of the end after it.
const Strings kPass = {"panels", "register 1 7 #0", "register 0 7 #1"};
const Strings kEnd = {"hub: unregister", "unregister 0 #1", "unregister 1 #0"};

Strings operator+(Strings first, const Strings& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

class SkeldaConnection : public ::testing::Test {
  protected:
    ~SkeldaConnection() override { producer->OnStop(); }

    void Publish(FakeTouchService::Script script = {}) {
        service = ::ndk::SharedRefBase::make<FakeTouchService>(record, std::move(script));
        service->Publish();
    }

    void Start(std::chrono::steady_clock::duration interval, const std::string& refusal = "") {
        producer = ::ndk::SharedRefBase::make<SkeldaProducer>(interval);
        log.Clear();
        record->Clear();
        producer->OnStart(::ndk::SharedRefBase::make<FakeManager>(record, refusal));
    }

    // The thread that logged last, once it sleeps and has let go of the producer.
    pid_t WaitForRest() {
        const pid_t thread = log.lines().back().thread;
        EXPECT_TRUE(Eventually([&] {
            return producer.use_count() == 1 && host::testing::ProcessState(thread) == 'S';
        }));
        return thread;
    }

    void Die() { producer->HandleBinderDeath(nullptr); }

    // The calls, hub and service together, when there were `count` and then the producer stopped.
    Strings StopAfter(size_t count) {
        record->WaitFor(count);
        producer->OnStop();
        return record->lines();
    }

    // The log from the start, by the names of lines that always come together.
    Strings Expand(const std::string& steps) const {
        char retrieved[64];
        snprintf(retrieved, sizeof(retrieved), "D print skelda: service retrieved: %p",
                 static_cast<void*>(static_cast<input::ISkeldaNotificationService*>(&*service)));
        const std::map<std::string, Strings> names = {
                {"check", {"D base skelda: checking for service: " + TouchServiceName()}},
                {"undeclared", {"W print skelda: service NOT declared in manifest"}},
                {"find", {kDeclared, retrieved}},
                {"miss",
                 {kDeclared, "D print skelda: service retrieved: (nil)",
                  "W print skelda: Skelda service not found."}},
                {"link", {"velmora_hal W print Cannot listen to binder death for this client."}},
                {"died", {"W print skelda: service died, signaling for reconnection"}},
                {"try", {"D print skelda: attempting registration..."}},
                {"busy", {kNoPanels + "busy"}},
                {"none", {kNoPanels}},
                {"panels",
                 {"I print skelda: Found Panel ID: 1, Supported Flags: 0xffffffffffffffff",
                  "I print skelda: Found Panel ID: 0, Supported Flags: 0x7               "}},
                {"1?", {kTrying + "1"}},
                {"1+", {kDone + "1"}},
                {"1-", {kFailed + "1, error: busy"}},
                {"0?", {kTrying + "0"}},
                {"0+", {kDone + "0"}},
                {"0-", {kFailed + "0, error: busy"}}};
        Strings lines = {"I base SkeldaProducer successfully registered with manager",
                         "I print skelda: Starting SkeldaHandler monitoring thread"};
        std::istringstream words(steps);
        for (std::string step; words >> step;)
            lines = lines + names.at(step);
        return lines;
    }

    LogCapture log;
    const std::shared_ptr<Record> record = std::make_shared<Record>();
    std::shared_ptr<FakeTouchService> service;
    std::shared_ptr<SkeldaProducer> producer;
};

struct FailureRow {
    std::string failing;  // the call of the first pass that fails
    std::string dying;    // the call inside which the service dies
    size_t calls;         // of the first pass
    std::string log;      // before a whole pass, from the lookup's end on
};

TEST_F(SkeldaConnection, TriesAgainAfterEveryFailureAndLooksAgainAfterEveryDeath) {
    const FailureRow rows[] = {
            {"panels", "", 1, "link try busy check"},
            {"no panels", "", 1, "link try none check"},
            {"register 1 7 #0", "", 3, "link try panels 1? 1- 0? 0+ check"},
            {"register 0 7 #1", "", 3, "link try panels 1? 1+ 0? 0- check"},
            {"", "asBinder", 0, "died link try check find link"},
            {"", "panels", 3, "link try died panels 1? 1+ 0? 0+ check find link"},
            {"panels", "panels", 1, "link try died busy check find link"},
            {"", "register 1 7 #0", 3, "link try panels 1? died 1+ 0? 0+ check find link"},
            {"", "register 0 7 #1", 3, "link try panels 1? 1+ 0? died 0+ check find link"}};
    for (const FailureRow& row : rows) {
        SCOPED_TRACE(row.failing + "/" + row.dying);
        Publish([this, &row](const std::string& line, int pass) {
            if (pass > 1) service->panels = {1, 0};
            if (pass == 1 && line == row.dying) Die();
            return pass == 1 && line == row.failing ? Failure("busy") : ScopedAStatus::ok();
        });
        if (row.failing == "no panels") service->panels.clear();
        service->as_binder = [this, dies = row.dying == "asBinder"]() mutable {
            if (std::exchange(dies, false)) Die();
            return ::ndk::SpAIBinder();
        };
        Start(20ms);
        const Strings first(kPass.begin(), kPass.begin() + static_cast<int>(row.calls));
        EXPECT_EQ(StopAfter(1 + first.size() + kPass.size()),
                  Strings{"hub: register 2"} + first + kPass + kEnd);
        EXPECT_EQ(Lines(log), Expand("check find " + row.log + " try panels 1? 1+ 0? 0+"));
    }
}

TEST_F(SkeldaConnection, WaitsTheWholeIntervalAfterAFailureWhateverDies) {
    constexpr auto kInterval = 200ms;
    std::chrono::steady_clock::time_point passes[3];
    Publish([&](const std::string& line, int pass) {
        if (line == "panels") passes[pass] = std::chrono::steady_clock::now();
        return pass == 1 ? Failure("busy") : ScopedAStatus::ok();
    });
    Start(kInterval);
    ASSERT_TRUE(log.WaitForText("Failed to get panel info: busy"));
    WaitForRest();
    Die();
    EXPECT_EQ(StopAfter(5).size(), 8u);
    EXPECT_GE(passes[2] - passes[1], kInterval);
}

TEST_F(SkeldaConnection, StopsAtOnceInEitherWaitAndStartsAgain) {
    bool fails = false;
    Publish([&](const std::string&, int) { return fails ? Failure("busy") : ScopedAStatus::ok(); });
    Start(1h);
    const auto manager = ::ndk::SharedRefBase::make<FakeManager>(record);
    for (int i = 0; i < 10; ++i) {
        const Strings calls = StopAfter(fails ? 2 : 4);
        EXPECT_EQ(calls.size(), fails ? 3u : 7u);
        producer->OnStop();
        EXPECT_EQ(record->lines(), calls) << "stopped twice";
        fails = !fails;
        record->Clear();
        producer->OnStart(manager);
    }
}

TEST_F(SkeldaConnection, GivesTheNextInstanceTheSameListenersAndNewPanelsNewOnes) {
    Publish([this](const std::string&, int pass) {
        service->panels = pass == 1 ? std::vector{1, 0, 1} : std::vector{5, 1, -1};
        return ScopedAStatus::ok();
    });
    Start(20ms);
    record->WaitFor(5);
    Die();
    EXPECT_THAT(StopAfter(9),
                ElementsAre("hub: register 2", "panels", "register 1 7 #0", "register 0 7 #1",
                            "register 1 7 #0", "panels", "register 5 7 #2", "register 1 7 #0",
                            "register -1 7 #3", "hub: unregister", "unregister -1 #3",
                            "unregister 0 #1", "unregister 1 #0", "unregister 5 #2"));
}

TEST_F(SkeldaConnection, ListensWithoutTheHubAndWithoutClients) {
    Publish();
    Start(1h, "Signal already registered.");
    record->WaitFor(4);
    for (const bool any : {true, false})
        EXPECT_TRUE(producer->onClientsUpdated(any).isOk());
    EXPECT_EQ(StopAfter(4),
              Strings{"hub: register 2"} + kPass + Strings(kEnd.begin() + 1, kEnd.end()));
    EXPECT_EQ(Lines(log).front(),
              "E base SkeldaProducer failed to register with manager: Signal already registered.");
    EXPECT_THAT(Lines(log), IsSupersetOf({"I base SkeldaProducer clients updated: 1",
                                          "I base SkeldaProducer clients updated: 0"}));
}

TEST_F(SkeldaConnection, AsksAgainForAServiceThatIsNotDeclaredOrOfAnotherInterface) {
    Publish();
    // From its start to its second warning.
    const auto expect_twice = [this](const std::string& steps) {
        Start(10ms);
        const Strings expected = Expand(steps + " " + steps);
        EXPECT_TRUE(Eventually([&] { return Lines(log).size() >= expected.size(); }));
        producer->OnStop();
        Strings lines = Lines(log);
        lines.resize(expected.size());
        EXPECT_EQ(lines, expected);
        EXPECT_THAT(record->lines(), ElementsAre("hub: register 2", "hub: unregister"));
    };
    HubHost::WithManifest("velmora_hub.xml", [&] { expect_twice("check undeclared"); });
    const auto other = ::ndk::SharedRefBase::make<TestToken>();
    PublishAsTouchService(other->asBinder());
    expect_twice("check miss");
}

}  // namespace
}  // namespace velmora_test
