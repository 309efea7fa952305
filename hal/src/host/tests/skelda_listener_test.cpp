// Labels: memory threads
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <time.h>

#include "host/engagement_signal.h"
#include "host_parts.h"

namespace velmora_test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using Payload = hub::signals::UserEngagementPayload;
using Tag = input::SkeldaNotification::Tag;

const char kSending[] = "I base skelda: client connected, sending event to manager: 2";
const char kNoPacket[] = "E base Failed to parse bytes to proto message";

int64_t BootMilliseconds() {
    timespec now = {};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return now.tv_sec * int64_t{1000} + now.tv_nsec / 1'000'000;
}

class SkeldaListener : public ::testing::Test {
  protected:
    SkeldaListener() { Register(manager, token); }

    void Register(std::shared_ptr<FakeManager> with, std::shared_ptr<hub::IToken> under) {
        producer = ::ndk::SharedRefBase::make<RegisteredProducer>(with, under);
        listener = ::ndk::SharedRefBase::make<SkeldaProducer::ListenerImpl>(producer);
        producer->onClientsUpdated(true);
    }

    // What one notification logs.
    Strings Notify(const input::SkeldaNotificationMsg& msg) {
        log.Clear();
        notified_at = BootMilliseconds();
        EXPECT_TRUE(listener->onNotificationReceived(msg).isOk());
        return Lines(log);
    }

    // The payload of the one event that the last notification made.
    Payload TakePayload() {
        const auto updates = manager->Take();
        EXPECT_EQ(updates.size(), 1u);
        std::optional<Payload> payload;
        for (const auto& [update_token, event] : updates) {
            EXPECT_EQ(update_token, token);
            EXPECT_EQ(event.signalId, 2);
            EXPECT_GE(event.timestampMs, notified_at);
            EXPECT_LE(event.timestampMs, BootMilliseconds());
            EXPECT_EQ(event.payload.getStability(), ::ndk::STABILITY_VINTF);
            EXPECT_EQ(event.payload.getParcelable(&payload), STATUS_OK);
        }
        return payload.value_or(Payload());
    }

    LogCapture log;
    const std::shared_ptr<FakeManager> manager =
            ::ndk::SharedRefBase::make<FakeManager>(std::make_shared<Record>());
    const std::shared_ptr<hub::IToken> token = ::ndk::SharedRefBase::make<TestToken>();
    std::shared_ptr<SkeldaProducer> producer;
    std::shared_ptr<SkeldaProducer::ListenerImpl> listener;
    int64_t notified_at = 0;
};

TEST_F(SkeldaListener, LogsEveryGestureAndSendsItWhileThereAreClients) {
    const struct {
        Kind kind;
        const char* headline;
    } rows[] = {{Kind::kTouchDown, "D base >> TouchDown: "},
                {Kind::kTap, "D base >> TapGesture: "},
                {Kind::kScroll, "D base >> ScrollGesture: "},
                {Kind::kZoom, "D base >> ZoomGesture: "},
                {Kind::kNone, "D base Received unhandled gesture type: 0"}};
    for (const auto& row : rows) {
        const auto packet = Gesture(row.kind, 1, {{0.25, 0.5, 0.1, 0.2}});
        const auto msg = Notification(packet.SerializeAsString(), 1);
        const auto payload = hub::host::MakeEngagement(packet, input::PanelID::SECONDARY);
        log.Clear();
        hub::host::DumpEngagement(payload);
        std::vector<::testing::Matcher<std::string>> expected = {
                "D base skelda: >> PanelID : 1", "D print Received::TouchGesture Start",
                StartsWith(row.headline), "D base Received::TouchGesture End"};
        for (const std::string& line : Lines(log))
            expected.push_back(line);
        producer->onClientsUpdated(false);
        EXPECT_THAT(Notify(msg), ElementsAreArray(expected));
        EXPECT_THAT(manager->Take(), IsEmpty());

        producer->onClientsUpdated(true);
        expected.push_back(kSending);
        EXPECT_THAT(Notify(msg), ElementsAreArray(expected));
        EXPECT_EQ(TakePayload(), payload);
    }
}

TEST_F(SkeldaListener, SendsAnEmptyPayloadForBytesThatHoldNoPacket) {
    // A field cut short, a length beyond the end, a group's end, a varint without one.
    for (const char* bytes : {"\x12", "\x12\x7f\x01", "\x0c", "\xff\xff\xff\xff\xff\xff\xff"}) {
        EXPECT_THAT(Notify(Notification(bytes)),
                    ElementsAre("D base skelda: >> PanelID : 0", kNoPacket, kNoPacket,
                                "D print === UserEngagementPayload ===",
                                "D print   overall_confidence: 0.00",
                                "D base =============================", kSending));
        EXPECT_EQ(TakePayload(), Payload());
    }
}

TEST_F(SkeldaListener, SendsNothingUnlessItIsRegistered) {
    const char warning[] = "W base skelda: Not registered, cannot send event to manager.";
    for (const bool has_manager : {true, false}) {
        Register(has_manager ? manager : nullptr, has_manager ? nullptr : token);
        EXPECT_THAT(
                Notify(Notification("")),
                ElementsAre("D base skelda: >> PanelID : 0", "D print Received::TouchGesture Start",
                            "D base Received unhandled gesture type: 0",
                            "D base Received::TouchGesture End", warning));
        EXPECT_THAT(Notify(Notification("\x12", -1)),
                    ElementsAre("D base skelda: >> PanelID : -1", kNoPacket, warning));
        EXPECT_THAT(manager->Take(), IsEmpty());
    }
}

TEST_F(SkeldaListener, OnlyLogsWhatIsNoGesture) {
    input::SkeldaNotificationMsg msg;
    msg.panelId = static_cast<input::PanelID>(5);
    msg.notification.set<Tag::earCheek>(int8_t{-128});
    EXPECT_THAT(Notify(msg),
                ElementsAre("D base skelda: >> PanelID : 5", "D base skelda: >> EarCheek : -128"));
    msg.notification.set<Tag::unusedHere>(7);
    EXPECT_THAT(Notify(msg), ElementsAre("D base skelda: >> PanelID : 5",
                                         "D base skelda: Received notification with tag: 1"));
    log.Clear();
    bool handled = true;
    EXPECT_TRUE(listener->onHandleNotification(Notification(""), &handled).isOk());
    EXPECT_FALSE(handled);
    EXPECT_TRUE(producer->nudge().isOk());
    EXPECT_THAT(Lines(log), IsEmpty());
    EXPECT_THAT(manager->Take(), IsEmpty());
}

TEST_F(SkeldaListener, DoesNothingOnceItsProducerIsGone) {
    producer.reset();
    EXPECT_THAT(Notify(Notification("")), IsEmpty());
    EXPECT_THAT(manager->Take(), IsEmpty());
}

}  // namespace
}  // namespace velmora_test
