// What clients and services that were built long ago rely on: the parcelables as words, the
// gestures as bytes. Codes and names of methods are the frozen files' and the generator's.

#include <aidl/com/quorin/input/PanelInfo.h>
#include <aidl/vendor/quorin/velmora_hub/SignalDescriptor.h>
#include <gtest/gtest.h>

#include <bit>

#include "host/engagement_signal.h"
#include "host_parts.h"

namespace velmora_test {
namespace {

namespace signals = hub::signals;
using Words = std::vector<int32_t>;

template <typename T>
Words WordsOf(const T& value) {
    const ndk::ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ(value.writeToParcel(parcel.get()), STATUS_OK);
    Words words(static_cast<size_t>(AParcel_getDataSize(parcel.get())) / 4);
    EXPECT_EQ(AParcel_marshal(parcel.get(), reinterpret_cast<uint8_t*>(words.data()), 0,
                              words.size() * 4),
              STATUS_OK);
    return words;
}

int32_t Word(float number) {
    return std::bit_cast<int32_t>(number);
}

TEST(Wire, HasTheFieldsOfParcelablesInOrderBehindTheirSize) {
    hub::SignalDescriptor descriptor;
    descriptor.signalId = 2;
    descriptor.ttlMs = 0x100000003;
    EXPECT_EQ(WordsOf(descriptor), (Words{20, 2, 0, 3, 1}));
    hub::VelmoraEvent event;
    event.signalId = 2;
    event.timestampMs = 0x500000004;
    // The holder: not null, its stability, no bytes.
    EXPECT_EQ(WordsOf(event), (Words{28, 2, 4, 5, 1, 1, 0}));
    input::PanelInfo info;
    info.panelId = input::PanelID(-2);
    info.supportedFlags = 0x500000004;
    EXPECT_EQ(WordsOf(info), (Words{16, -2, 4, 5}));
    // The union: not null, its tag, its value.
    EXPECT_EQ(WordsOf(Notification("\1\2\3", 5)), (Words{24, 5, 1, 2, 3, 0x030201}));
    input::SkeldaNotificationMsg cheek;
    cheek.notification.set<input::SkeldaNotification::Tag::earCheek>(int8_t{-1});
    EXPECT_EQ(WordsOf(cheek), (Words{20, 0, 1, 0, -1}));
}

TEST(Wire, HasTheFieldsOfAnEngagementInOrder) {
    const auto packet = Gesture(Kind::kTap, 3, {{0.25, 0.5, 0.5, 1}});
    const auto payload = hub::host::MakeEngagement(packet, input::PanelID::SECONDARY);
    const Words rect = {1, 20, Word(0.25f), Word(0.5f), Word(0.75f), Word(1.5f)};
    const Words evidence = {1, 24, 2, Word(1), 1, 0, 4};
    Words expected = {88, Word(1), 1, 1, 68, 1};
    expected.insert(expected.end(), rect.begin(), rect.end());
    expected.insert(expected.end(), {Word(1), 1});
    expected.insert(expected.end(), evidence.begin(), evidence.end());
    expected.push_back(2);
    EXPECT_EQ(WordsOf(payload), expected);
}

// A field of the number, with bytes; the message that holds it stays below 128 bytes.
std::string Field(int number, const std::string& bytes) {
    return std::string{static_cast<char>(number << 3 | 2), static_cast<char>(bytes.size())} + bytes;
}
std::string Field(int number, double value) {
    const auto bytes = std::bit_cast<std::array<char, sizeof(value)>>(value);
    return static_cast<char>(number << 3 | 1) + std::string(bytes.begin(), bytes.end());
}
std::string Field(int number, int below_128) {
    return {static_cast<char>(number << 3), static_cast<char>(below_128)};
}

TEST(Wire, ReadsGesturesByTheNumbersOfTheirFields) {
    const std::string minus_one = std::string(9, '\xff') + '\x01';
    const std::string large_id = std::string("\x08\xff\xff\xff\xff\x0f");
    const std::string point =
            std::string("\x08") + minus_one + "\x10" + minus_one + Field(3, 0.25) + Field(4, 0.5);
    const std::string size = Field(1, 9) + Field(2, 9) + Field(3, 0.5) + Field(4, 1.0);
    const std::string placed = large_id + Field(2, point) + Field(3, size);
    const std::string points = Field(3, Field(3, 1.0)) + Field(4, Field(4, 2.0)) +
                               Field(5, Field(3, 3.0)) + Field(6, Field(4, 4.0));
    const struct {
        std::string bytes;
        int code;
        std::vector<signals::NormalizedRect> rects;
    } rows[] = {
            {Field(1, placed + Field(4, 100)), 1, {{0.25, 0.5, 0.75, 1.5}}},
            {Field(2, placed + Field(4, 100) + Field(5, 2)), 3, {{0.25, 0.5, 0.75, 1.5}}},
            {Field(3, placed + Field(4, 7.0) + Field(5, 100) + Field(6, 8.0) + Field(7, 1) +
                              Field(8, 3)),
             7,
             {{0.25, 0.5, 0.75, 1.5}}},
            {Field(4,
                   large_id + Field(2, 2) + points + Field(7, 100) + Field(8, 9.0) + Field(9, 2)),
             10,
             {{1, 0, 1, 0}, {0, 2, 0, 2}, {3, 0, 3, 0}, {0, 4, 0, 4}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.code);
        const auto packet = hub::host::DeserializeBytesToGesturePacket(
                std::vector<uint8_t>(row.bytes.begin(), row.bytes.end()));
        ASSERT_TRUE(packet.has_value());
        EXPECT_EQ(packet->SerializeAsString(), row.bytes) << "a field of it is not known";
        const auto region =
                hub::host::MakeEngagement(*packet, input::PanelID::PRIMARY).regions.at(0);
        const auto& kind = region.evidence.at(0).sub_type;
        EXPECT_EQ(static_cast<int>(kind.get<signals::EvidenceSubType::Tag::touch_gesture>()),
                  row.code);
        std::vector<signals::NormalizedRect> rects;
        for (const auto& rect : region.rects.value())
            rects.push_back(*rect);
        EXPECT_EQ(rects, row.rects);
    }
}

}  // namespace
}  // namespace velmora_test
