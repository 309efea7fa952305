// What the service manager goes by: names, tables, waiters and the states of processes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "process_state.h"
#include "service_name.h"
#include "service_table.h"
#include "waiter_list.h"

namespace host {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

using Table = ServiceTable<std::shared_ptr<int>>;
using Outcome = Table::Outcome;

bool Alive(const Table::Entry&) {
    return true;
}
bool Dead(const Table::Entry&) {
    return false;
}

TEST(ServiceName, IsOneTo127CharactersOfTheSet) {
    EXPECT_TRUE(IsValidServiceName("a"));
    EXPECT_TRUE(IsValidServiceName("pkg.sub_1-x.IFoo/default"));
    EXPECT_TRUE(IsValidServiceName(std::string(127, 'z')));
    EXPECT_FALSE(IsValidServiceName(""));
    EXPECT_FALSE(IsValidServiceName(std::string(128, 'z')));
    for (const char* bad : {"a b", "a:b", "a\n", "\xC3\xA4", "a*", "@", "[", "`", "{"}) {
        EXPECT_FALSE(IsValidServiceName(bad)) << bad;
    }
    EXPECT_FALSE(IsValidServiceName(std::string_view("a\0b", 3)));
}

TEST(ServiceTable, WithdrawsTheVeryEntryThatDiedAndNotItsSuccessor) {
    Table table;
    const auto first = std::make_shared<int>(1);
    const auto second = std::make_shared<int>(2);
    const auto is_first = [&](const auto& object) { return object == first; };
    const auto is_second = [&](const auto& object) { return object == second; };
    table.Put("n", first, 10, Alive);
    table.Put("n", second, 20, Dead);
    EXPECT_FALSE(table.Withdraw("n", is_first));
    EXPECT_FALSE(table.Withdraw("m", is_second));
    EXPECT_EQ(table.Withdraw("n", is_second)->object, second);
    EXPECT_EQ(table.Find("n", Alive), nullptr);
}

TEST(ServiceTable, BoundsTheNamesOfOneProcessAndOfAll) {
    Table table;
    for (size_t i = 0; i < Table::kMaxNames; ++i) {
        const pid_t pid = static_cast<pid_t>(i / Table::kMaxPerProcess) + 1;
        ASSERT_EQ(table.Put("n" + std::to_string(i), nullptr, pid, Alive).outcome,
                  Outcome::kPublished);
        if (i + 1 == Table::kMaxPerProcess) {
            EXPECT_EQ(table.Put("more", nullptr, pid, Alive).outcome, Outcome::kTooMany);
        }
    }
    EXPECT_EQ(table.Put("more", nullptr, 999, Alive).outcome, Outcome::kTooMany);
    EXPECT_EQ(table.Put("n0", nullptr, 1, Alive).outcome, Outcome::kPublished);
    ASSERT_TRUE(table.Withdraw("n1", [](const auto&) { return true; }));
    EXPECT_EQ(table.Put("more", nullptr, 999, Alive).outcome, Outcome::kPublished);
}

TEST(WaiterList, HandsOutThoseWhoseTimeIsUpOrWhoAreGone) {
    WaiterList<int> list;
    const auto now = std::chrono::steady_clock::now();
    EXPECT_EQ(list.NextDeadline(), list.kForever);
    list.Add("a", 1, now + seconds(2));
    list.Add("b", 2, now + seconds(1));
    list.Add("c", 3, list.kForever);
    EXPECT_EQ(list.NextDeadline(), now + seconds(1));
    EXPECT_THAT(list.TakeExpired(now), IsEmpty());
    EXPECT_THAT(list.TakeExpired(now + seconds(1)), ElementsAre(2));
    EXPECT_EQ(list.NextDeadline(), now + seconds(2));
    EXPECT_THAT(list.TakeGone([](int waiter) { return waiter == 1; }), ElementsAre(1));
    EXPECT_EQ(list.size(), 1u);
}

TEST(ProcessState, ReadsDeathFromTheStatusText) {
    const struct {
        const char* status;
        bool dead;
    } cases[] = {
            {"Name:\tx\nState:\tS (sleeping)\nSigPnd:\t0\nShdPnd:\t0000000000000000\n", false},
            {"Name:\tx\nState:\tT (stopped)\nSigPnd:\t0\nShdPnd:\tfffffffffffffeff\n", false},
            {"Name:\tx\nState:\tS (sleeping)\nSigPnd:\t0\nShdPnd:\t0000000000000100\n", true},
            {"Name:\tx\nState:\tS (sleeping)\nSigPnd:\t0000000000000100\nShdPnd:\t0\n", true},
            {"Name:\tx\nState:\tZ (zombie)\n", true},
            {"Name:\tx\nState:\tX (dead)\n", true},
            {"", true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(IsDeadStatus(c.status), c.dead) << c.status;
}

}  // namespace
}  // namespace host
