// Labels: memory threads
// Random sequences of operations, on the hub and on the model. HUB_MODEL_SEED repeats a run.

#include <android/log.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "hub_operations.h"

namespace velmora_test {
namespace {

// A hub writes several lines per operation.
void DropLine(const __android_log_message*) {}

std::vector<uint8_t> RandomBytes(uint32_t seed, size_t size) {
    std::mt19937 random(seed);
    std::vector<uint8_t> bytes(size);
    for (uint8_t& byte : bytes)
        byte = static_cast<uint8_t>(random());
    return bytes;
}

TEST(HubModel, TheHubDoesWhatTheModelDoes) {
    __android_log_set_logger(DropLine);
    const char* given = std::getenv("HUB_MODEL_SEED");
    const auto seed = given == nullptr ? std::random_device()()
                                       : static_cast<uint32_t>(std::strtoul(given, nullptr, 10));
    std::printf("HUB_MODEL_SEED=%u\n", seed);
    const struct {
        uint32_t sequences;
        size_t bytes;
    } kRuns[] = {{300, 60}, {30, 1'000}, {1, 15'000}};
    uint32_t round = 0;
    for (const auto& run : kRuns)
        for (uint32_t i = 0; i < run.sequences; ++i)
            ASSERT_EQ(FirstDifference(RandomBytes(seed + round++, run.bytes)), "")
                    << "HUB_MODEL_SEED=" << seed << ", sequence " << round;
}

TEST(HubModel, AModelWithAnotherRuleIsNoticed) {
    __android_log_set_logger(DropLine);
    const HubModel::Rules kWrong[] = {{.queue_bound = 99},
                                      {.queue_bound = 101},
                                      {.only_the_newest_token_unregisters = true},
                                      {.updates_end_with_the_registration = true},
                                      {.subscribers_hear_of_earlier_producers = true},
                                      {.signals_without_subscribers_are_forgotten = true}};
    for (size_t i = 0; i < std::size(kWrong); ++i) {
        uint32_t seed = 0;
        while (seed < 100 && FirstDifference(RandomBytes(seed, 1'000), kWrong[i]).empty())
            ++seed;
        EXPECT_LT(seed, 100u) << "rule " << i;
    }
}

}  // namespace
}  // namespace velmora_test
