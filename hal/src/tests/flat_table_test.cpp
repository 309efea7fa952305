// Labels: memory

#include "flat_table.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>

namespace velmora_test {
namespace {

using ::aidl::vendor::quorin::velmora_hub::FlatTable;

// Both are told the same. Few keys in many steps fill every gap and close it again; the table grows
// and shrinks several times.
TEST(FlatTable, HoldsWhatAMapHolds) {
    std::minstd_rand random(1);
    FlatTable<uint32_t, std::unique_ptr<int>> table;
    std::map<uint32_t, int> map;
    for (int step = 0; step < 40'000; ++step) {
        const uint32_t key = (1 + random() % 400) * (step % 2 == 0 ? 1U : 0x10'0000U);
        const bool grows = step / 10'000 % 2 == 0;
        const int former = map.count(key) != 0 ? map[key] : -1;
        std::unique_ptr<int> given;
        if (random() % 4 < (grows ? 3 : 1)) {
            given = table.Put(key, std::make_unique<int>(step));
            map[key] = step;
        } else {
            given = table.Take(key);
            map.erase(key);
        }
        ASSERT_EQ(given == nullptr ? -1 : *given, former);
        if (step % 100 != 0) continue;
        for (uint32_t other = 0; other <= 400; ++other) {
            const auto* const found = table.Find(other);
            ASSERT_EQ(found != nullptr, map.count(other) != 0) << other;
            if (found != nullptr) {
                ASSERT_EQ(**found, map[other]);
            }
        }
    }
}

}  // namespace
}  // namespace velmora_test
