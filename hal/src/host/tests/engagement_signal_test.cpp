#include "host/engagement_signal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

#include "host_parts.h"

namespace velmora_test {
namespace {

namespace signals = hub::signals;
using ::testing::ElementsAre;

signals::EngagementRegion RegionOf(const touch_gesture::TouchGesturePacket& packet) {
    const auto payload = hub::host::MakeEngagement(packet, input::PanelID::PRIMARY);
    EXPECT_EQ(payload.overall_confidence, 1.0f);
    EXPECT_EQ(payload.regions.size(), 1u);
    EXPECT_EQ(payload.regions.at(0).confidence, 1.0f);
    return payload.regions.at(0);
}

int CodeOf(const signals::EngagementRegion& region) {
    const signals::Evidence& evidence = region.evidence.at(0);
    EXPECT_EQ(region.evidence.size(), 1u);
    EXPECT_EQ(static_cast<int>(evidence.type), 2);
    EXPECT_EQ(evidence.weight, 1.0f);
    return static_cast<int>(evidence.sub_type.get<signals::EvidenceSubType::Tag::touch_gesture>());
}

std::vector<uint32_t> Bits(const std::vector<float>& sides) {
    std::vector<uint32_t> bits;
    for (const float side : sides)
        bits.push_back(std::bit_cast<uint32_t>(side));
    return bits;
}

std::vector<uint32_t> BitsOf(const signals::EngagementRegion& region) {
    std::vector<float> sides;
    for (const auto& rect : region.rects.value())
        sides.insert(sides.end(), {rect->left, rect->top, rect->right, rect->bottom});
    return Bits(sides);
}

TEST(EngagementSignal, TellsEveryGestureByItsCodeAndMakesRectanglesOfWhatIsAbsent) {
    constexpr int kMin = std::numeric_limits<int>::min(), kMax = std::numeric_limits<int>::max();
    const struct {
        Kind kind;
        int type, code;
        size_t rects;
    } rows[] = {{Kind::kTouchDown, 0, 1, 1}, {Kind::kTap, 0, 0, 1},    {Kind::kTap, 1, 2, 1},
                {Kind::kTap, 2, 3, 1},       {Kind::kTap, 3, 4, 1},    {Kind::kTap, 4, 0, 1},
                {Kind::kTap, -1, 0, 1},      {Kind::kTap, kMin, 0, 1}, {Kind::kTap, kMax, 0, 1},
                {Kind::kScroll, 0, 0, 1},    {Kind::kScroll, 1, 5, 1}, {Kind::kScroll, 2, 6, 1},
                {Kind::kScroll, 3, 7, 1},    {Kind::kScroll, 4, 8, 1}, {Kind::kScroll, 5, 0, 1},
                {Kind::kScroll, -3, 0, 1},   {Kind::kZoom, 0, 0, 4},   {Kind::kZoom, 1, 9, 4},
                {Kind::kZoom, 2, 10, 4},     {Kind::kZoom, 3, 0, 4},   {Kind::kZoom, -1, 0, 4}};
    for (const auto& row : rows) {
        const auto region = RegionOf(Gesture(row.kind, row.type));
        EXPECT_EQ(CodeOf(region), row.code) << static_cast<int>(row.kind) << " " << row.type;
        EXPECT_EQ(BitsOf(region), std::vector<uint32_t>(row.rects * 4, 0)) << row.type;
    }
    const auto none = RegionOf(Gesture(Kind::kNone));
    EXPECT_EQ(CodeOf(none), 0);
    EXPECT_FALSE(none.rects.has_value());
}

TEST(EngagementSignal, AddsAsDoublesAndRoundsOnce) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const struct {
        std::array<double, 4> numbers;
        std::vector<float> sides;
    } rows[] = {{{0.01, 0.01, 0.04, 0.32}, {0.01f, 0.01f, 0.05f, 0.33f}},
                {{0.25, 0.5, 0.1, 0.2}, {0.25f, 0.5f, 0.35f, 0.7f}},
                {{-3.5, 1e-9, 7.0, -1.0}, {-3.5f, 1e-9f, 3.5f, -1.0f}},
                {{-0.0, -0.0, -0.0, 0.0}, {-0.0f, -0.0f, -0.0f, 0.0f}},
                {{1e-60, HUGE_VAL, -HUGE_VAL, 1}, {0.0f, kInfinity, -kInfinity, kInfinity}}};
    // The sums of the first row come out differently when floats are added.
    EXPECT_TRUE(0.01f + 0.04f != 0.05f && 0.01f + 0.32f != 0.33f);
    for (const auto& row : rows) {
        for (const Kind kind : {Kind::kTouchDown, Kind::kTap, Kind::kScroll})
            EXPECT_EQ(BitsOf(RegionOf(Gesture(kind, 0, row.numbers))), Bits(row.sides));
    }
    EXPECT_EQ(BitsOf(RegionOf(Gesture(Kind::kZoom, 0, {{0.1, -0.0, -0.0, 1.5}}))),
              Bits({0.1f, -0.0f, 0.1f, -0.0f, 0, 0, 0, 0, 0, 0, 0, 0, -0.0f, 1.5f, -0.0f, 1.5f}));
}

TEST(EngagementSignal, NumbersDisplaysFromOneAndUnknownPanelsZero) {
    for (const auto& [panel, display] :
         {std::pair(0, 1), {1, 2}, {2, 0}, {5, 0}, {-1, 0}, {-128, 0}})
        EXPECT_EQ(hub::host::MakeEngagement({}, static_cast<input::PanelID>(panel)).display,
                  display);
}

TEST(EngagementSignal, DumpsNullRectanglesAsNoneAndEmptyOnesNotAtAll) {
    android::base::SetMinimumLogSeverity(android::base::DEBUG);
    const LogCapture log;
    signals::UserEngagementPayload payload;
    payload.regions = {RegionOf(Gesture(Kind::kTap, 2, {{1.0 / 3, 0.5, 0.1, 0.2}})), {}, {}};
    payload.regions[0].rects->push_back(signals::NormalizedRect());
    payload.regions[1].rects.emplace();
    payload.regions[1].confidence = 0.256f;
    hub::host::DumpEngagement(payload);
    hub::host::DumpEngagement({});
    EXPECT_THAT(
            Lines(log),
            ElementsAre(
                    "D print === UserEngagementPayload ===", "D print   overall_confidence: 0.00",
                    "D print   EngagementRegion[0]: confidence: 1.00",
                    "D base     Rect[0]: (left: 0.333333, top: 0.5, right: 0.433333, bottom: 0.7)",
                    "D base     Rect[1]: (left: 0, top: 0, right: 0, bottom: 0)",
                    "D base     Evidence[0]: type: 2, weight: 1",
                    "D base       sub_type (touch_gesture): 3",
                    "D print   EngagementRegion[1]: confidence: 0.26",
                    "D print   EngagementRegion[2]: confidence: 0.00", "D base     Rect: <none>",
                    "D base =============================", "D print === UserEngagementPayload ===",
                    "D print   overall_confidence: 0.00", "D base ============================="));
}

}  // namespace
}  // namespace velmora_test
