// Labels: memory threads processes
// The real program against a hub in a process of its own and clients in this one.

#include <aidl/vendor/quorin/velmora_hub/signals/UserEngagementPayload.h>
#include <gmock/gmock.h>

#include <csignal>
#include <regex>

#include "hub_processes.h"

namespace velmora_test {
namespace {

using hub::signals::UserEngagementPayload;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using Lines = std::vector<std::string>;

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new HubHost);

// One run of the program.
class Ctl {
  public:
    explicit Ctl(const std::vector<std::string>& arguments)
            : child_(Launch(arguments)), channel_(child_->output(), child_->input()) {}

    std::string Line() { return channel_.Read(kTestLimit).value_or("<no line>"); }
    Lines Rest() {
        Lines lines;
        while (const auto line = channel_.Read(kTestLimit))
            lines.push_back(*line);
        return lines;
    }
    void Type(const std::string& line) { channel_.Write(line); }
    void EndInput() { child_->CloseInput(); }
    void Signal(int signal) { child_->Signal(signal); }
    Child& child() { return *child_; }
    // Whether so many lines of talk hold the text, now or soon.
    bool Says(const std::string& text, int times = 1) {
        return Eventually([&] { return child_->log().Count(text) >= times; });
    }
    // -1 if it does not end or a signal ends it.
    int Status() {
        const auto status = child_->WaitExit();
        return status ? status->code : -1;
    }

  private:
    static std::unique_ptr<Child> Launch(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), VELMORACTL);
        return LaunchProgram(arguments,
                             {.pipe_input = true, .pipe_output = true, .echo_log = false});
    }

    const std::unique_ptr<Child> child_;
    LineChannel channel_;
};

// A producer of this process, registered.
struct Registered {
    Registered(const HubProcess& hub, int32_t signal_id, int64_t ttl_ms = 0) : hub(hub) {
        token = Register(*hub.producers(), MakeDescriptor(signal_id, ttl_ms), MakeProducer(record));
        EXPECT_NE(token, nullptr);
    }
    void Push(const hub::VelmoraEvent& event) const {
        EXPECT_TRUE(hub.producers()->updateSignal(token, event).isOk());
    }
    void Unregister() const { EXPECT_TRUE(hub.producers()->unregisterProducer(token).isOk()); }

    const HubProcess& hub;
    std::shared_ptr<Record> record = std::make_shared<Record>();
    std::shared_ptr<hub::IToken> token;
};

UserEngagementPayload MakeEngagement() {
    using Tag = hub::signals::EvidenceSubType::Tag;
    UserEngagementPayload payload;
    payload.overall_confidence = 0.7f;
    payload.display = 1;
    payload.regions.resize(2);
    payload.regions[0].rects.emplace().resize(2);
    hub::signals::NormalizedRect& rect = (*payload.regions[0].rects)[0].emplace();
    rect.left = 0.1f;
    rect.bottom = -2.5f;
    payload.regions[0].evidence.resize(1);
    hub::signals::Evidence& evidence = payload.regions[0].evidence[0];
    evidence.type = static_cast<hub::signals::EvidenceType>(77);
    evidence.weight = 0.3f;
    evidence.sub_type.set<Tag::touch_gesture>(hub::signals::TouchGestureKind::DOUBLE_TAP);
    return payload;
}

// Five events of signal 7, one of each kind that the program tells apart.
std::vector<hub::VelmoraEvent> EventsOfEachKind() {
    std::vector<hub::VelmoraEvent> events(5, MakeEvent(7, 1));
    events[0].payload.setParcelable(MakeEngagement());
    events[1] = MakeEvent(7, 2, "esc\033[1m");
    events[2].payload.setParcelable(MakeEvent(9));  // a type that is nobody's payload
    events[4].signalId = 9;
    return events;
}

TEST(List, ShowsServicesAndSignals) {
    const HubProcess hub;
    const Registered producer(hub, 7, 250);
    for (const int32_t signal_id : {7, 5})
        ASSERT_NE(Subscribe(*hub.consumers(), signal_id, MakeConsumer()), nullptr);
    const std::string pid = std::to_string(hub.pid());
    const std::string name = "vendor.quorin.velmora_hub.IVelmoraHubProducerManager/default";

    EXPECT_THAT(Ctl({"list"}).Rest(),
                ElementsAre("service com.quorin.input.ISkeldaNotificationService/default         "
                            "  declared  not published",
                            HasSubstr("IVelmoraHubConsumerManager/default  declared  published by"),
                            "service " + name + "  declared  published by " + pid,
                            "signal 5  no producer  consumers: 1",
                            "signal 7  token 1  TTL 250 ms  consumers: 1"));
    EXPECT_THAT(Ctl({"list", "--json"}).Rest(),
                ElementsAre(HasSubstr(R"("published":false,"pid":null})"), HasSubstr("Consumer"),
                            R"({"kind":"service","name":")" + name +
                                    R"(","declared":true,"published":true,"pid":)" + pid + "}",
                            R"({"kind":"signal","signal":5,"token":null,"ttlMs":null,)"
                            R"("consumers":1})",
                            R"({"kind":"signal","signal":7,"token":1,"ttlMs":250,"consumers":1})"));
    EXPECT_EQ(Ctl({"dump", "producers"}).Rest(),
              (Lines{"VelmoraHubProducerManager State:", "  Signal ID: 7",
                     "    Producer Token ID: 1", "    TTL: 250 ms"}));
    EXPECT_THAT(Ctl({"dump", "--json"}).Rest(),
                ElementsAre(R"({"kind":"producers","signal":7,"tokens":[1],"ttlMs":250})",
                            R"({"kind":"consumers","signal":5,"tokens":[2]})",
                            R"({"kind":"consumers","signal":7,"tokens":[1]})"));
}

TEST(Watch, ShowsEventsAndPushTakesWhatItPrints) {
    const HubProcess hub;
    const Registered producer(hub, 7);
    Ctl text({"watch", "7"});
    Ctl json({"watch", "7", "--json", "--count", "5"});
    ASSERT_TRUE(text.Says("watching signal 7") && json.Says("watching signal 7"));
    for (const hub::VelmoraEvent& event : EventsOfEachKind())
        producer.Push(event);
    producer.Unregister();
    EXPECT_EQ(text.Line(),
              "7  @1 ms  display 1, DOUBLE_TAP at (0.1, 0 - 0, -2.5) at nowhere, no evidence, "
              "confidence 0.7");
    EXPECT_EQ(text.Line(), R"(7  @2 ms  descriptor of signal 0, tags ["esc\u001b[1m"], TTL 0 ms)");
    EXPECT_THAT(text.Line(),
                AllOf(HasSubstr("vendor.quorin.velmora_hub.VelmoraEvent, "), EndsWith(" bytes")));
    EXPECT_EQ(text.Line(), "7  @1 ms  no payload");
    EXPECT_EQ(text.Line(), "7  @1 ms  (says signal 9) no payload");
    EXPECT_EQ(text.Line(), "7  unavailable: UNREGISTERED");
    text.Signal(SIGINT);
    EXPECT_EQ(text.Status(), 0);
    const Lines printed = json.Rest();
    ASSERT_EQ(printed.size(), 5u);
    EXPECT_EQ(json.Status(), 0);
    EXPECT_TRUE(Eventually(
            [&hub] { return DumpOf(*hub.consumers()).find("Token") == std::string::npos; }));

    // It prints the events that it made of them.
    Ctl push({"push", "8", "--json"});
    push.Type(R"({"kind":"nudge","signal":7})");
    for (const std::string& line : printed) {
        push.Type(line);
        const std::string moved =
                std::regex_replace(line, std::regex("\"signal\":7"), "\"signal\":8");
        EXPECT_EQ(push.Line(), std::regex_replace(moved, std::regex(",\"eventSignal\":9"), ""));
    }
    push.EndInput();
    EXPECT_EQ(push.Status(), 0);
}

TEST(Watch, SubscribesAnewForALateProducerAndAnotherHub) {
    std::optional<HubProcess> hub;
    Ctl watch({"watch", "2", "--json", "--count", "2"});
    for (int round = 1; round <= 2; ++round) {
        SCOPED_TRACE(round);
        ASSERT_TRUE(watch.Says("waiting for the hub", round));
        hub.emplace();
        ASSERT_TRUE(watch.Says("watching signal 2, which has no producer yet", round));
        const auto other = round == 1 ? nullptr : Subscribe(*hub->consumers(), 2, MakeConsumer());
        // Once the worker has told of this demand, that of the watch is over, too, and unheard.
        const Registered bystander(*hub, 3);
        const auto demand = Subscribe(*hub->consumers(), 3, MakeConsumer());
        ASSERT_THAT(bystander.record->WaitFor(1), ElementsAre("producer: clients"));
        const Registered producer(*hub, 2);
        EXPECT_EQ(watch.Line(), R"({"kind":"available","signal":2})");
        ASSERT_TRUE(watch.Says("subscribed anew", round));
        if (round == 1) {
            EXPECT_THAT(producer.record->WaitFor(2),
                        ElementsAre("producer: no clients", "producer: clients"));
        } else {
            ASSERT_TRUE(watch.Says("signal 2 has other consumers"));
        }
        producer.Push(MakeEvent(2, round));
        EXPECT_EQ(watch.Line(), R"({"kind":"event","signal":2,"timestampMs":)" +
                                        std::to_string(round) + R"(,"payload":null})");
        if (round == 1) hub->process().Kill();
    }
    EXPECT_TRUE(watch.Says("the hub has died"));
    EXPECT_EQ(watch.Status(), 0);
}

TEST(Push, TellsOfDemandAndNudgesAndLeavesOnASignal) {
    const HubProcess hub;
    const auto record = std::make_shared<Record>();
    Ctl push({"push", "7", "--ttl", "3"});
    ASSERT_TRUE(push.Says("signal 7 is registered"));
    EXPECT_THAT(DumpOf(*hub.producers()), HasSubstr("TTL: 3 ms"));
    ASSERT_NE(Subscribe(*hub.consumers(), 7, MakeConsumer(record)), nullptr);
    EXPECT_EQ(push.Line(), "7  wanted: there are consumers");
    Ctl nudge({"nudge", "7", "--json"});
    EXPECT_EQ(nudge.Line(), R"({"kind":"nudge","signal":7})");
    EXPECT_EQ(nudge.Status(), 0);
    EXPECT_EQ(push.Line(), "7  asked for an update");
    push.Type(R"({"timestampMs":4,"payload":{"type":"SignalDescriptor","value":{"tags":["x"]}}})");
    EXPECT_EQ(push.Line(), R"(7  @4 ms  descriptor of signal 0, tags ["x"], TTL 0 ms)");
    push.Signal(SIGINT);
    EXPECT_EQ(push.Status(), 0);
    EXPECT_THAT(record->WaitFor(2),
                ElementsAre("consumer: update 7 @4 x", "consumer: unavailable 7 UNREGISTERED"));
}

TEST(Push, MakesEventsUpAtARateOnceTheyAreWantedAndMakesUpForAPauseByOneAtMost) {
    using Clock = std::chrono::steady_clock;
    const HubProcess hub;
    Ctl push({"push", "7", "--rate", "20", "--count", "4", "--wait", "--json"});
    ASSERT_TRUE(push.Says("signal 7 is registered"));
    for (const auto begin = Clock::now(); Clock::now() - begin < std::chrono::milliseconds(250);)
        ASSERT_EQ(Ctl({"list"}).Status(), 0);
    Ctl watch({"watch", "7", "--count", "4"});
    EXPECT_EQ(push.Line(), R"({"kind":"demand","signal":7,"clients":true})");
    std::vector<int64_t> times;
    const std::string key = "\"timestampMs\":";
    for (const std::string& line : push.Rest()) {
        times.push_back(std::stoll(line.substr(line.find(key) + key.size())));
        EXPECT_THAT(line, HasSubstr("\"tags\":[\"event " + std::to_string(times.size()) + "\"]"));
    }
    ASSERT_EQ(times.size(), 4u);
    EXPECT_GE(times.back() - times.front(), 2 * 50 - 1);
    EXPECT_EQ(push.Status(), 0);
    EXPECT_EQ(watch.Status(), 0);
}

TEST(Watch, GoesOnAfterItWasStopped) {
    const HubProcess hub;
    Ctl watch({"watch", "7", "--timeout", "60"});
    ASSERT_TRUE(watch.Says("watching signal 7"));
    ASSERT_TRUE(watch.child().Stop());
    ASSERT_TRUE(watch.child().Continue());
    const Registered producer(hub, 7);
    EXPECT_EQ(watch.Line(), "7  available");
    watch.Signal(SIGINT);
    EXPECT_EQ(watch.Status(), 0);
}

struct Ending {
    std::vector<std::string> arguments;
    int status;
    std::string talk;
    std::string input = "";
};

void ExpectEndings(const std::vector<Ending>& endings) {
    for (const Ending& ending : endings) {
        SCOPED_TRACE(::testing::PrintToString(ending.arguments));
        Ctl run(ending.arguments);
        if (!ending.input.empty()) run.Type(ending.input);
        run.EndInput();
        EXPECT_EQ(run.Status(), ending.status);
        EXPECT_TRUE(run.Says(ending.talk, ending.talk.empty() ? 0 : 1));
    }
}

TEST(ExitStatus, TellsHowARunEnded) {
    ExpectEndings({{{"--help"}, 0, ""},
                   {{}, 2, "velmoractl: A verb is required"},
                   {{"look"}, 2, "not expected: look"},
                   {{"watch"}, 2, "SIGNAL is required"},
                   {{"watch", "two"}, 2, "SIGNAL"},
                   {{"watch", "2", "--count", "0"}, 2, "--count"},
                   {{"push", "2", "3"}, 2, "SIGNAL"},
                   {{"push", "2", "--rate", "0"}, 2, "--rate"},
                   {{"push", "2", "--rate", "nan"}, 2, "--rate"},
                   {{"push", "2", "--file", "/nowhere"}, 2, "--file"},
                   {{"dump", "tokens"}, 2, "TABLE"},
                   {{"list"}, 0, "no hub is published"},
                   {{"dump"}, 4, "no hub is published"},
                   {{"nudge", "7", "--timeout", "0.1"}, 3, "waiting for the hub"}});
    HubProcess hub;
    const Registered producer(hub, 7);
    ExpectEndings({{{"nudge", "9"}, 4, "signal 9 has no producer"},
                   {{"push", "7"}, 1, "Signal already registered."},
                   {{"push", "9"}, 1, "line 1: parse error", "{"},
                   {{"push", "9"}, 1, "timestampMs: a whole number", R"({"timestampMs":1e300})"},
                   {{"push", "9"},
                    1,
                    "confidence: a number",
                    R"({"payload":{"type":"UserEngagementPayload",)"
                    R"("value":{"overall_confidence":1e300}}})"},
                   {{"push", "9"},
                    1,
                    "regions: a list is wanted",
                    R"({"payload":{"type":"UserEngagementPayload","value":{"regions":{}}}})"},
                   {{"push", "9"}, 1, "line 1: too long", std::string(10 << 20, 'x')},
                   {{"push", "9"}, 1, "\"paylod\" does not belong here", R"({"paylod":null})"},
                   {{"push", "9"}, 1, "needs \"bytes\"", R"({"payload":{"type":"x.Y","value":0}})"},
                   {{"push", "9"}, 1, "no payload", R"({"payload":{"type":"x.Y","bytes":"0102"}})"},
                   {{"watch", "9", "--timeout", "0.1"}, 3, "the time is over"}});
    Ctl push({"push", "9"});
    ASSERT_TRUE(push.Says("signal 9 is registered"));
    ASSERT_TRUE(hub.process().Stop());
    ExpectEndings({{{"watch", "7", "--timeout", "0.1"}, 3, "the time is over"}});
    hub.process().Kill();
    EXPECT_EQ(push.Status(), 1);
}

}  // namespace
}  // namespace velmora_test
