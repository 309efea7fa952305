// Labels: memory
#include <gtest/gtest.h>

#include <vector>

#include "src/references.h"
#include "tests/local_object.h"

namespace host {
namespace {

RefId Id(uint32_t number) {
    return {{number, 1}};
}

LocalBinder* Local(const ndk::SpAIBinder& object) {
    return AsLocal(object.get());
}

TEST(ExportTable, KeepsAnObjectUntilItsHandOversAreTakenBackAndThenForgetsItsName) {
    std::atomic<int> alive{0};
    ndk::SpAIBinder object = MakeLocalObject(&alive);
    ExportTable& table = ExportTable::Get();
    RefId id, same, later;
    ASSERT_TRUE(table.HandOver(Local(object), &id));
    ASSERT_TRUE(table.HandOver(Local(object), &same));
    EXPECT_TRUE(id == same);
    ASSERT_TRUE(table.HandOver(id));
    EXPECT_EQ(table.TakeBack(id, 4), nullptr) << "more than there were";
    EXPECT_EQ(table.TakeBack(id, 2), nullptr);
    EXPECT_EQ(table.Find(id).get(), object.get());
    EXPECT_EQ(table.TakeBack(id, 1).get(), object.get());
    EXPECT_EQ(table.Find(id), nullptr);
    EXPECT_FALSE(table.HandOver(id));
    ASSERT_TRUE(table.HandOver(Local(object), &later));
    EXPECT_FALSE(later == id) << "a name is never used again";
    object.set(nullptr);
    EXPECT_EQ(alive, 1);
    EXPECT_NE(table.TakeBack(later, 1), nullptr);
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(table.size(), 0U);
}

TEST(Holdings, GiveOutWhatIsLeftWhenTheyCloseAndTakeNothingMore) {
    Holdings holdings;
    for (uint32_t id : {1, 1, 3})
        ASSERT_EQ(holdings.Add(Id(id)), Holdings::Result::kOk);
    ASSERT_EQ(holdings.Remove(Id(1), 2), Holdings::Result::kOk);
    EXPECT_EQ(holdings.Close().size(), 1U);
    EXPECT_EQ(holdings.Add(Id(1)), Holdings::Result::kClosed);
}

TEST(Keeps, HoldAnObjectUntilEveryHandOverIsSettled) {
    std::atomic<int> alive{0};
    ndk::SpAIBinder object = MakeLocalObject(&alive);
    Keeps keeps;
    std::vector<BinderRef> released;
    ASSERT_EQ(keeps.Add(object.get(), "1-a", Id(1)), Keeps::Result::kOk);
    ASSERT_EQ(keeps.Add(object.get(), "1-a", Id(1)), Keeps::Result::kOk);
    object.set(nullptr);
    EXPECT_FALSE(keeps.Settle("1-a", Id(2), &released));
    EXPECT_TRUE(keeps.Settle("1-a", Id(1), &released));
    EXPECT_TRUE(released.empty());
    EXPECT_TRUE(keeps.Settle("1-a", Id(1), &released));
    EXPECT_EQ(alive, 1);
    released.clear();
    EXPECT_EQ(alive, 0);
    EXPECT_FALSE(keeps.Settle("1-a", Id(1), &released)) << "once too often";
    keeps.Close();
    EXPECT_EQ(keeps.Add(nullptr, "1-a", Id(1)), Keeps::Result::kClosed);
}

// A process gives its objects what names it likes, and says of others' what it likes.
TEST(Keeps, HoldEveryObjectOfOneName) {
    std::atomic<int> alive{0};
    Keeps keeps;
    std::vector<BinderRef> released;
    for (const char* owner : {"1-a", "2-b", "2-b"})
        ASSERT_EQ(keeps.Add(MakeLocalObject(&alive).get(), owner, Id(1)), Keeps::Result::kOk);
    EXPECT_EQ(alive, 3);
    ASSERT_TRUE(keeps.Settle("1-a", Id(1), &released));
    ASSERT_TRUE(keeps.Settle("2-b", Id(1), &released));
    released.clear();
    EXPECT_EQ(alive, 2) << "either of the two may be the one that is outstanding";
    ASSERT_TRUE(keeps.Settle("2-b", Id(1), &released));
    released.clear();
    EXPECT_EQ(alive, 0);
}

// Releases wait for the place in the ring that they name, in any order of places.
TEST(DelayedReleases, WaitForTheRingToBeReadThatFar) {
    DelayedReleases releases;
    EXPECT_EQ(releases.Add({Id(1), 1, 0}), DelayedReleases::Result::kNow);
    EXPECT_EQ(releases.Add({Id(2), 1, 100}), DelayedReleases::Result::kDelayed);
    EXPECT_TRUE(releases.Reach(99).empty());
    EXPECT_EQ(releases.Reach(100).size(), 1U);
    EXPECT_EQ(releases.Add({Id(3), 1, 100}), DelayedReleases::Result::kNow);
    EXPECT_EQ(releases.Add({Id(4), 1, 300}), DelayedReleases::Result::kDelayed);
    EXPECT_TRUE(releases.Reach(50).empty()) << "told late";
    EXPECT_EQ(releases.Close().size(), 1U);
}

TEST(ProxyTable, HasOneStandInWhileItIsReferencedAndCountsItsArrivals) {
    ProxyTable table;
    const ProxyKey key{Id(1), "test.IObject"};
    int made = 0;
    const auto make = [&made] {
        ++made;
        return new ProxyBinder(nullptr, Id(1), "test.IObject");
    };
    BinderRef first = table.Arrive(key, make);
    BinderRef second = table.Arrive(key, make);
    EXPECT_EQ(first.get(), second.get());
    EXPECT_EQ(made, 1);
    EXPECT_EQ(table.Leave(AsProxy(first.get())), 2U);
    BinderRef third = table.Arrive(key, make);
    EXPECT_NE(third.get(), first.get()) << "the one that left settles its own arrivals only";
    EXPECT_EQ(AsProxy(third.get())->arrivals, 1U);
    EXPECT_EQ(table.Leave(AsProxy(first.get())), 2U);
    EXPECT_EQ(table.Arrive(key, make).get(), third.get()) << "and does not take the new one along";
    AsProxy(third.get())->gone.store(true);
    BinderRef fourth = table.Arrive(key, make);
    EXPECT_NE(fourth.get(), third.get()) << "its owner hands over what it has not known before";
    EXPECT_EQ(table.Close().size(), 1U);
    EXPECT_EQ(table.Arrive(key, make), nullptr);
}

TEST(ProxyTable, KeepsApartWhatIsSaidToBeOfDifferentInterfaces) {
    ProxyTable table;
    std::vector<BinderRef> held;
    for (const char* said : {"test.IObject", "test.IObjectOfALongerName", "test.IObject", ""}) {
        held.push_back(
                table.Arrive({Id(1), said}, [&] { return new ProxyBinder(nullptr, Id(1), said); }));
        EXPECT_EQ(AsProxy(held.back().get())->descriptor, said);
    }
    EXPECT_EQ(held[0].get(), held[2].get());
    EXPECT_EQ(AsProxy(held[0].get())->arrivals, 2U);
    EXPECT_EQ(table.Leave(AsProxy(held[1].get())), 1U);
    EXPECT_EQ(table.Close().size(), 2U);
}

}  // namespace
}  // namespace host
